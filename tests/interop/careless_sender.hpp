// Encodings of a sender that knows the format but not the library's rules, or not all of the format: what damage() does
// seldom in deeply nested messages, since the lengths around a change no longer fit.
#pragma once

#include <random>

#include "tests/interop/record.hpp"

namespace vesk::test {

class CarelessSender {
public:
    // `slips` of a thousand decisions go another way than usual.
    CarelessSender(std::mt19937_64& random, unsigned slips) : random_(random), slips_(slips) {}

    Bytes encoded(const TypeInfo& type, const Record& record);

private:
    using Pieces = std::vector<Bytes>;

    bool slips() { return below(1000) < slips_; }
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

    void append_field(const FieldInfo& field, const Value& value, Pieces& pieces);
    void append_nested(const FieldInfo& field, const Record& record, Pieces& pieces);
    // A varint longer than it needs to be.
    Bytes stretched(std::uint64_t value);
    Bytes text_of(const std::string& text);
    Bytes tag(std::uint32_t number, std::uint32_t wire_type);
    Bytes length(std::uint64_t length);
    Bytes number(std::uint64_t value);
    // A whole field of any wire type, its number sometimes a known one.
    Bytes stray_field();
    Bytes value_of(std::uint32_t number_of_field, std::uint32_t wire_type);

    std::mt19937_64& random_;
    unsigned slips_;
};

}  // namespace vesk::test
