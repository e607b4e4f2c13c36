#include "tests/schema/table.hpp"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

namespace vesk::test {
namespace {

const std::set<std::string> kinds{"uint32", "uint64", "bool", "string", "bytes", "message", "list"};

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

void check_rows(const Table& table, const Type& type, Findings& findings) {
    std::set<std::uint32_t> numbers;
    std::set<std::string> names;
    for (std::size_t i = 0; i < type.rows.size(); ++i) {
        const Row& row = type.rows[i];
        const std::string where = type.name + ": " + to_string(row);
        if (row.bit != i) findings.push_back(where + ": the bit is not the row's place, " + std::to_string(i));
        if (!numbers.insert(row.number).second) findings.push_back(where + ": number used twice");
        if (!names.insert(row.name).second) findings.push_back(where + ": name used twice");
        if (kinds.count(row.kind) == 0) findings.push_back(where + ": unknown kind");
        if (is_nesting(row) && row.nested != entity_identifier().name && table.find(row.nested) == nullptr) {
            findings.push_back(where + ": unknown nested type");
        }
    }
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

Findings check_table(const Table& table) {
    Findings findings;
    std::set<std::string> names;
    for (const Type& type : table.types) {
        if (!names.insert(type.name).second) findings.push_back(type.name + ": a second block");
        if (std::find(units.begin(), units.end(), type.unit) == units.end()) {
            findings.push_back(type.name + ": unknown unit " + type.unit);
        }
        if (type.rows.size() != type.field_count) {
            findings.push_back(type.name + ": " + std::to_string(type.field_count) + " fields stated, " +
                               std::to_string(type.rows.size()) + " listed");
        }
        if (type.presence_bytes != (type.rows.size() + 7) / 8) {
            findings.push_back(type.name + ": " + std::to_string(type.presence_bytes) + " presence bytes do not fit " +
                               std::to_string(type.rows.size()) + " fields");
        }
        check_rows(table, type, findings);
    }
    return findings;
}

std::string to_string(const Row& row) {
    const std::string nested = row.nested.empty() ? "" : " " + row.nested;
    return std::to_string(row.number) + " " + row.name + " " + row.kind + nested + ", bit " + std::to_string(row.bit);
}

void compare_lines(const std::vector<std::string>& expected, const std::vector<std::string>& found,
                   const std::string& what, Findings& findings) {
    const std::size_t common = std::min(expected.size(), found.size());
    std::size_t i = 0;
    while (i < common && expected[i] == found[i]) ++i;
    if (i == expected.size() && i == found.size()) return;
    const auto line = [&](const std::vector<std::string>& lines) { return i < lines.size() ? lines[i] : "nothing"; };
    findings.push_back(what + ": the table has " + line(expected) + ", found " + line(found));
}

}  // namespace vesk::test
