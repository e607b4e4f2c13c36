#include "generator/document.hpp"

#include <algorithm>
#include <map>
#include <optional>

namespace vesk::generator {
namespace {

// What the document says of a type beyond its own rows.
struct Facts {
    std::size_t size = 0;  // of the structure, where pointers have 64 bits
    std::size_t alignment = 1;
    std::optional<std::size_t> longest;  // encoding, if there is a longest
    std::vector<std::string> nests;
    std::vector<std::string> nested_by;
};

using FactsByType = std::map<std::string, Facts>;

void add_once(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

std::size_t round_up(std::size_t size, std::size_t alignment) { return (size + alignment - 1) / alignment * alignment; }

// Puts a member after the others.
void place(Facts& facts, std::size_t size, std::size_t alignment) {
    facts.size = round_up(facts.size, alignment) + size;
    facts.alignment = std::max(facts.alignment, alignment);
}

void place_field(Facts& facts, const Field& field, const FactsByType& known) {
    switch (field.kind) {
        case Kind::uint32: return place(facts, 4, 4);
        case Kind::uint64: return place(facts, 8, 8);
        case Kind::boolean: return place(facts, 1, 1);
        case Kind::string: return place(facts, 8, 8);
        case Kind::bytes: place(facts, 8, 8); return place(facts, 8, 8);
        case Kind::list: place(facts, 8, 8); return place(facts, 4, 4);
        case Kind::message: {
            const Facts& nested = known.at(field.nested);
            return place(facts, nested.size, nested.alignment);
        }
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

FactsByType gather_facts(const std::vector<Unit>& units) {
    FactsByType all;
    for (const Unit& unit : units) {
        for (const Message& message : unit.messages) {
            Facts facts;
            facts.longest = 0;
            for (const Field& field : message.fields) {
                place_field(facts, field, all);
                const std::optional<std::size_t> longest = longest_field(field, all);
                facts.longest = facts.longest && longest ? std::optional(*facts.longest + *longest) : std::nullopt;
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

std::string kind_in_words(const Field& field) {
    switch (field.kind) {
        case Kind::uint32: return "uint32";
        case Kind::uint64: return "uint64";
        case Kind::boolean: return "bool";
        case Kind::string: return "string";
        case Kind::bytes: return "bytes";
        case Kind::message: return "message [" + field.nested + "](#" + field.nested + ")";
        case Kind::list: return "list of [" + field.nested + "](#" + field.nested + ")";
    }
    return {};
}

std::string links(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "[" : ", [") + name + "](#" + name + ")";
    return text.empty() ? "nothing" : text;
}

std::string print_message(const Message& message, const Facts& facts) {
    std::string text = "### " + message.name + "\n\n" + message.comment + "\n\n";
    text += "- Structure: " + std::to_string(facts.size) + " bytes, " +
            std::to_string((message.fields.size() + 7) / 8) + " of them presence bits\n";
    text += "- Longest encoding: " + (facts.longest ? std::to_string(*facts.longest) + " bytes" : "unlimited") + "\n";
    text += "- Nests: " + links(facts.nests) + "\n- Nested by: " + links(facts.nested_by) + "\n\n";
    text += "| No. | Member | Kind | Presence bit |\n|---:|---|---|---:|\n";
    for (std::size_t index = 0; index < message.fields.size(); ++index) {
        const Field& field = message.fields[index];
        const std::string note = field.comment.empty() ? "" : " (" + field.comment + ")";
        text += "| " + std::to_string(field.number) + " | `" + field.name + "` | " + kind_in_words(field) + note +
                " | " + std::to_string(index) + " |\n";
    }
    return text + "\n";
}

}  // namespace

std::string print_document(const std::vector<Unit>& units) {
    const FactsByType facts = gather_facts(units);
    std::string text =
        "# The messages\n\n"
        "Generated by protoc-gen-vesk from schema/. Do not edit.\n\n"
        "Members have no meaning but what their users give them; the library moves values and looks at none.\n\n"
        "A row per field in declaration order, which is the order of the structure's members, of the presence bits and "
        "of\n"
        "the encoding. A `bytes` field has a second member, `NAME_length` (uint64_t), a list one `NAME_count` "
        "(uint32_t).\n"
        "Sizes are those of platforms with 64-bit pointers. A longest encoding exists where a type holds no string, "
        "bytes,\n"
        "list or message of another library, here or in a message that it nests; a flag counts two bytes after its "
        "tag,\n"
        "since its member is written as it stands (one byte if it is 0 or 1).\n\n";
    for (const Unit& unit : units) {
        text += "## " + unit.name + "\n\n" + unit.comment + "\n\n";
        for (const Message& message : unit.messages) {
            if (!message.family.empty()) text += "**" + message.family + "**\n\n";
            text += print_message(message, facts.at(message.name));
        }
    }
    text.pop_back();  // one end of line
    return text;
}

}  // namespace vesk::generator
