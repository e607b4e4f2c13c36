#include "generator/type_facts.hpp"

#include <algorithm>

namespace vesk::generator {
namespace {

void add_once(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

std::size_t round_up(std::size_t size, std::size_t alignment) { return (size + alignment - 1) / alignment * alignment; }

// Puts a member after the others.
void place(Facts& facts, std::size_t size, std::size_t alignment) {
    facts.size = round_up(facts.size, alignment) + size;
    facts.alignment = std::max(facts.alignment, alignment);
}

void place_field(Facts& facts, const Field& field, const FactsByType& known, std::size_t pointer) {
    switch (field.kind) {
        case Kind::uint32: return place(facts, 4, 4);
        case Kind::uint64: return place(facts, 8, 8);
        case Kind::boolean: return place(facts, 1, 1);
        case Kind::string: return place(facts, pointer, pointer);
        case Kind::bytes: place(facts, pointer, pointer); return place(facts, 8, 8);
        case Kind::list: place(facts, pointer, pointer); return place(facts, 4, 4);
        case Kind::message: {
            const Facts& nested = known.at(field.nested);
            return place(facts, nested.size, nested.alignment);
        }
        default: return;  // only in the messages of others
    }
}

std::size_t varint_size(std::size_t value) { return value < 0x80 ? 1 : 1 + varint_size(value >> 7); }

// The longest that a field can become, its tag included.
std::optional<std::size_t> longest_field(const Field& field, const FactsByType& known) {
    const std::size_t tag = varint_size(std::size_t{field.number} << 3);
    switch (field.kind) {
        case Kind::uint32: return tag + 5;
        case Kind::uint64: return tag + 10;
        case Kind::boolean: return tag + 2;  // the member is a byte, and is written as it stands
        case Kind::message: {
            const std::optional<std::size_t> nested = known.at(field.nested).longest;
            if (!nested) return std::nullopt;
            return tag + varint_size(*nested) + *nested;
        }
        default: return std::nullopt;
    }
}

// Bytes that a field asks for, for each byte of input that it takes: the most, rounded up. Nothing beats elements
// without content; a string or bytes field asks for less than it takes.
std::size_t memory_per_byte(const Field& field, const FactsByType& known) {
    const std::size_t tag = varint_size(std::size_t{field.number} << 3);
    switch (field.kind) {
        case Kind::string:
        case Kind::bytes: return 1;
        case Kind::message: return known.at(field.nested).memory_per_byte;
        case Kind::list: {
            const Facts& element = known.at(field.nested);
            return std::max((element.size + tag) / (tag + 1), element.memory_per_byte);
        }
        default: return 0;
    }
}

}  // namespace

FactsByType gather_facts(const std::vector<Unit>& units, Pointers pointers) {
    FactsByType all;
    for (const Unit& unit : units) {
        for (const Message& message : unit.messages) {
            Facts facts;
            facts.longest = 0;
            for (const Field& field : message.fields) {
                place_field(facts, field, all, pointers == Pointers::of_64_bits ? 8 : 4);
                const std::optional<std::size_t> longest = longest_field(field, all);
                facts.longest = facts.longest && longest ? std::optional(*facts.longest + *longest) : std::nullopt;
                facts.memory_per_byte = std::max(facts.memory_per_byte, memory_per_byte(field, all));
                if (field.nested.empty()) continue;
                add_once(facts.nests, field.nested);
                add_once(all.at(field.nested).nested_by, message.name);
            }
            place(facts, (message.fields.size() + 7) / 8, 1);
            facts.size = round_up(facts.size, facts.alignment);
            all.emplace(message.name, facts);
        }
    }
    return all;
}

}  // namespace vesk::generator
