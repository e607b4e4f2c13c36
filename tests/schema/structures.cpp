#include <stdexcept>

#include "tests/schema/checks.hpp"
#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

const char* name_of(Kind kind) {
    switch (kind) {
        case Kind::uint32: return "uint32";
        case Kind::uint64: return "uint64";
        case Kind::boolean: return "bool";
        case Kind::string: return "string";
        case Kind::bytes: return "bytes";
        case Kind::message: return "message";
        case Kind::list: return "list";
        default: break;  // a kind that messages of others alone have
    }
    return "unknown";
}

std::string line(std::uint32_t number, const std::string& kind, const std::string& nested, std::uint64_t bit,
                 std::size_t offset, std::size_t second_offset) {
    return "field " + std::to_string(number) + " " + kind + (nested.empty() ? "" : " " + nested) + ", bit " +
           std::to_string(bit) + " at " + std::to_string(offset) +
           (second_offset == 0 ? "" : " and " + std::to_string(second_offset));
}

std::string last_line(std::size_t presence_bytes, std::size_t presence_offset, Extent whole) {
    return std::to_string(presence_bytes) + " presence bytes at " + std::to_string(presence_offset) + ", size " +
           std::to_string(whole.size) + ", alignment " + std::to_string(whole.alignment);
}

std::vector<std::string> expected_lines(const Table& table, const Type& type) {
    const Layout layout = layout_of(table, type);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < type.rows.size(); ++i) {
        const Row& row = type.rows[i];
        lines.push_back(line(row.number, row.kind, row.nested, row.bit, layout.offsets[i], layout.second_offsets[i]));
    }
    lines.push_back(last_line(type.presence_bytes, layout.presence_offset, layout.whole));
    return lines;
}

std::vector<std::string> compiled_lines(const TypeInfo& type) {
    std::vector<std::string> lines;
    for (const FieldInfo& field : type.fields) {
        const std::string nested = field.nested != nullptr ? field.nested->name : "";
        lines.push_back(
            line(field.number, name_of(field.kind), nested, lines.size(), field.offset, field.second_offset));
    }
    lines.push_back(last_line(type.presence_size, type.presence_offset, {type.size, type.alignment}));
    return lines;
}

// The entity identifier's structure, found where some type holds it.
const TypeInfo* find_entity_identifier() {
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (field.nested != nullptr && field.nested->name == entity_identifier().name) return field.nested;
        }
    }
    return nullptr;
}

void check_structure(const Table& table, const Type& type, const TypeInfo* compiled, Findings& findings) {
    const std::string what = "structure of " + type.name;
    if (compiled == nullptr) {
        findings.push_back(what + " is missing");
        return;
    }
    try {
        compare_lines(expected_lines(table, type), compiled_lines(*compiled), what, findings);
    } catch (const std::runtime_error& error) {
        findings.push_back(what + ": " + error.what());
    }
}

}  // namespace

Findings check_structures(const Table& table) {
    Findings findings;
    for (const Type& type : table.types) check_structure(table, type, find_type(type.name), findings);
    check_structure(table, entity_identifier(), find_entity_identifier(), findings);
    for (const TypeInfo* type : all_types()) {
        if (table.find(type->name) == nullptr)
            findings.push_back("structure of " + type->name + " is not in the table");
    }
    return findings;
}

}  // namespace vesk::test
