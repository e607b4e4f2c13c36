#include <algorithm>
#include <stdexcept>

#include "tests/schema/table.hpp"
#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

// What a member takes of a structure.
struct Extent {
    std::size_t size;
    std::size_t alignment;
};

template <class Member>
struct Behind {
    char before;
    Member member;
};

// Alignment inside a structure, which some platforms make smaller than that of a variable.
template <class Member>
constexpr Extent extent_of = {sizeof(Member), offsetof(Behind<Member>, member)};

struct Layout {
    std::vector<std::size_t> offsets;         // of each row's first member
    std::vector<std::size_t> second_offsets;  // of a bytes field's length or a list's count; else 0
    std::size_t presence_offset = 0;
    Extent whole{0, 1};
};

// Puts a member behind the others and returns its offset.
std::size_t append(Layout& layout, Extent member) {
    const std::size_t offset = (layout.whole.size + member.alignment - 1) / member.alignment * member.alignment;
    layout.whole.size = offset + member.size;
    layout.whole.alignment = std::max(layout.whole.alignment, member.alignment);
    return offset;
}

Layout layout_of(const Table& table, const Type& type);

Extent nested_extent(const Table& table, const std::string& name) {
    if (name == entity_identifier().name) return layout_of(table, entity_identifier()).whole;
    const Type* type = table.find(name);
    if (type == nullptr) throw std::runtime_error("unknown nested type " + name);
    return layout_of(table, *type).whole;
}

Extent first_member(const Table& table, const Row& row) {
    if (row.kind == "uint32") return extent_of<std::uint32_t>;
    if (row.kind == "uint64") return extent_of<std::uint64_t>;
    if (row.kind == "bool") return extent_of<std::uint8_t>;
    if (row.kind == "message") return nested_extent(table, row.nested);
    return extent_of<void*>;
}

Layout layout_of(const Table& table, const Type& type) {
    Layout layout;
    for (const Row& row : type.rows) {
        layout.offsets.push_back(append(layout, first_member(table, row)));
        std::size_t second = 0;
        if (row.kind == "bytes") second = append(layout, extent_of<std::uint64_t>);
        if (row.kind == "list") second = append(layout, extent_of<std::uint32_t>);
        layout.second_offsets.push_back(second);
    }
    layout.presence_offset = append(layout, {type.presence_bytes, 1});
    layout.whole.size = append(layout, {0, layout.whole.alignment});
    return layout;
}

const char* name_of(Kind kind) {
    switch (kind) {
        case Kind::uint32: return "uint32";
        case Kind::uint64: return "uint64";
        case Kind::boolean: return "bool";
        case Kind::string: return "string";
        case Kind::bytes: return "bytes";
        case Kind::message: return "message";
        case Kind::list: return "list";
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
