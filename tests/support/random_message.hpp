// Messages filled at random, for tests over every type. The same type, seed and amount give the same message on every
// machine.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::test {

enum class Amount {
    some,  // about forty fields in all, so that every length of the encoding can be tried
    much,  // nearly every field, up to three elements per list
    wild,  // as some, but flags are any byte, and presence bits are set and clear whatever the members hold
};

// Sets members with and without their presence bits, as a careless caller might: strings null, empty, short and long,
// numbers of every width, lists of no to three elements, now and then a hundred numbers, values whose bit is clear.
// There is never a length without a pointer.
class RandomMessage {
public:
    RandomMessage(const TypeInfo& type, std::uint64_t seed, Amount amount);

    const void* get() const { return message_.get(); }
    void* get() { return message_.get(); }

private:
    void fill(const TypeInfo& type, void* message);
    void fill_field(const FieldInfo& field, void* message, bool wanted);
    void fill_repeated(const FieldInfo& field, void* message);
    std::uint64_t scalar(Kind kind);
    char* new_text();
    vesk_bytes new_data();
    std::uint64_t number() { return chance(3) ? ~std::uint64_t{0} : random_() >> random_() % 64; }
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool chance(unsigned percent) { return below(100) < percent; }
    std::size_t content_length();
    std::uint8_t* new_block(std::size_t size);

    std::mt19937_64 random_;
    bool wild_;
    unsigned percent_;
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
    Storage message_;
};

}  // namespace vesk::test
