// A table of facts that is written by hand: rows as vesk_facts.h describes them, made of lines that name a field's kind
// and members. It shares nothing with runtime/facts.hpp.
#pragma once

#include <vesk/vesk_facts.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/interpreter.hpp"

namespace vesk::test {

struct FieldByHand {
    std::string name;
    std::uint32_t number;
    std::uint16_t kind;  // with VESK_KIND_REPEATED or without
    std::size_t offset;
    std::size_t size_offset;
    int nested;  // place of the type in the table; -1 for none
    bool packed;
};

struct TypeByHand {
    std::string name;
    std::size_t size;
    std::size_t alignment;
    std::size_t presence_offset;
    std::vector<FieldByHand> fields;
    bool elsewhere = false;
};

// One block that holds the rows, numbers and names, so that each finds the others by their distance.
class FactsByHand {
public:
    explicit FactsByHand(const std::vector<TypeByHand>& types);

    const vesk_type* type(std::size_t place) const { return reinterpret_cast<const vesk_type*>(block_.data()) + place; }

private:
    std::vector<std::uint64_t> block_;
};

// The same for the second implementation, a type for each.
std::vector<interpreter::TableType> table_by_hand(const std::vector<TypeByHand>& types);

}  // namespace vesk::test
