#include "tests/support/table.hpp"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>

namespace vesk::test {
namespace {

bool is_nesting(const Row& row) { return row.kind == "message" || row.kind == "list"; }

Type parse_type(std::istringstream& words) {
    std::string keyword;
    Type type{};
    words >> keyword >> type.name >> type.unit >> type.field_count >> type.presence_bytes;
    if (keyword != "type") words.setstate(std::ios::failbit);
    return type;
}

Row parse_row(std::istringstream& words) {
    Row row{};
    words >> row.number >> row.name >> row.kind >> row.bit;
    if (is_nesting(row)) words >> row.nested;
    return row;
}

template <class Member>
struct Behind {
    char before;
    Member member;
};

// Alignment inside a structure, which some platforms make smaller than that of a variable.
template <class Member>
constexpr Extent extent_of = {sizeof(Member), offsetof(Behind<Member>, member)};

// Puts a member behind the others and returns its offset.
std::size_t append(Layout& layout, Extent member) {
    const std::size_t offset = (layout.whole.size + member.alignment - 1) / member.alignment * member.alignment;
    layout.whole.size = offset + member.size;
    layout.whole.alignment = std::max(layout.whole.alignment, member.alignment);
    return offset;
}

Extent nested_extent(const Table& table, const std::string& name) {
    if (name == entity_identifier().name) return layout_of(table, entity_identifier()).whole;
    const Type* type = table.find(name);
    if (type == nullptr) throw std::runtime_error("unknown nested type " + name);
    return layout_of(table, *type).whole;
}

Extent first_member(const Table& table, const Row& row) {
    static const std::map<std::string, Extent> scalars = {
        {"uint32", extent_of<std::uint32_t>},  {"uint64", extent_of<std::uint64_t>},
        {"bool", extent_of<std::uint8_t>},     {"sint32", extent_of<std::int32_t>},
        {"sint64", extent_of<std::int64_t>},   {"int32", extent_of<std::int32_t>},
        {"int64", extent_of<std::int64_t>},    {"fixed32", extent_of<std::uint32_t>},
        {"fixed64", extent_of<std::uint64_t>}, {"sfixed32", extent_of<std::int32_t>},
        {"sfixed64", extent_of<std::int64_t>}, {"float", extent_of<float>},
        {"double", extent_of<double>},         {"enum", extent_of<std::int32_t>}};
    if (const auto scalar = scalars.find(row.kind); scalar != scalars.end()) return scalar->second;
    if (row.kind == "message") return nested_extent(table, row.nested);
    return extent_of<void*>;
}

}  // namespace

const Type* Table::find(const std::string& name) const {
    const auto found = std::find_if(types.begin(), types.end(), [&](const Type& type) { return type.name == name; });
    return found == types.end() ? nullptr : &*found;
}

Type& Table::at(const std::string& name) {
    const Type* found = find(name);
    if (found == nullptr) throw std::out_of_range("no type " + name);
    return const_cast<Type&>(*found);
}

Table parse_table(const std::string& text) {
    Table table;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        if (line[0] != ' ') {
            table.types.push_back(parse_type(words));
        } else if (!table.types.empty()) {
            table.types.back().rows.push_back(parse_row(words));
        } else {
            words.setstate(std::ios::failbit);
        }
        std::string rest;
        if (!words || words >> rest) throw std::runtime_error("line " + std::to_string(number) + ": " + line);
    }
    return table;
}

const Type& entity_identifier() {
    static const Type type{"drin_eid_st",
                           "drin_eid",
                           6,
                           1,
                           {{1, "f1", "uint32", 0, ""},
                            {2, "f2", "uint32", 1, ""},
                            {3, "f3", "uint32", 2, ""},
                            {4, "f4", "uint32", 3, ""},
                            {5, "f5", "uint32", 4, ""},
                            {6, "element_list", "list", 5, "drin_eid_element"}}};
    return type;
}

bool is_repeated(const Row& row) { return row.kind.starts_with("repeated_") || row.kind.starts_with("packed_"); }

std::string to_string(const Row& row) {
    const std::string nested = row.nested.empty() ? "" : " " + row.nested;
    return std::to_string(row.number) + " " + row.name + " " + row.kind + nested + ", bit " + std::to_string(row.bit);
}

Layout layout_of(const Table& table, const Type& type) {
    Layout layout;
    for (const Row& row : type.rows) {
        layout.offsets.push_back(append(layout, first_member(table, row)));
        std::size_t second = 0;
        if (row.kind == "bytes") second = append(layout, extent_of<std::uint64_t>);
        if (row.kind == "list" || is_repeated(row)) second = append(layout, extent_of<std::uint32_t>);
        layout.second_offsets.push_back(second);
    }
    layout.presence_offset = append(layout, {type.presence_bytes, 1});
    layout.whole.size = append(layout, {0, layout.whole.alignment});
    return layout;
}

}  // namespace vesk::test
