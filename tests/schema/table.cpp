#include <algorithm>
#include <set>

#include "tests/schema/checks.hpp"

namespace vesk::test {
namespace {

const std::set<std::string> kinds{"uint32", "uint64", "bool", "string", "bytes", "message", "list"};

void check_rows(const Table& table, const Type& type, Findings& findings) {
    std::set<std::uint32_t> numbers;
    std::set<std::string> names;
    for (std::size_t i = 0; i < type.rows.size(); ++i) {
        const Row& row = type.rows[i];
        const std::string where = type.name + ": " + to_string(row);
        if (row.bit != i) findings.push_back(where + ": the bit is not the row's place, " + std::to_string(i));
        if (!numbers.insert(row.number).second) findings.push_back(where + ": number used twice");
        if (!names.insert(row.name).second) findings.push_back(where + ": name used twice");
        if (!kinds.contains(row.kind)) findings.push_back(where + ": unknown kind");
        if (!row.nested.empty() && row.nested != entity_identifier().name && table.find(row.nested) == nullptr) {
            findings.push_back(where + ": unknown nested type");
        }
    }
}

}  // namespace

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
