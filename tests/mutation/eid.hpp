// The entity identifier as this program has it: the stand-in's four functions, which may be told to misbehave.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::test {

struct EidBehaviour {
    std::int32_t decode_code = 0;     // instead of decoding, if it is not 0
    std::int32_t duplicate_code = 0;  // besides duplicating
    // What a measuring call returns, if it is not 0. A writing call then stores as many bytes, as far as there is room
    // and no more than `stored`, returns 5 more, and counts this many segments.
    std::uint64_t measured = 0;
    std::uint64_t stored = UINT64_MAX;
    std::uint32_t segments = 0;
};

// Of all identifiers.
EidBehaviour& eid_behaviour();

// The arguments of every writing call of an identifier that misbehaves, until it is cleared.
std::string& eid_writes();

// Back to the stand-in's own ways at the end of a scope.
struct Misbehaving {
    explicit Misbehaving(const EidBehaviour& behaviour) { eid_behaviour() = behaviour; }
    Misbehaving(const Misbehaving&) = delete;
    Misbehaving& operator=(const Misbehaving&) = delete;
    ~Misbehaving() { eid_behaviour() = {}; }
};

}  // namespace vesk::test
