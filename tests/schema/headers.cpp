#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/schema/checks.hpp"

namespace vesk::test {
namespace {

// A structure and its presence enumeration as the header spells them, blanks and alignment taken out.
struct Declared {
    std::vector<std::string> members;      // "char *f2; 2, bit 1"
    std::vector<std::string> enumerators;  // "VESK_PEM_DATA_F3 = 2"
};

const std::string prefix = "vesk_";

using Header = std::map<std::string, Declared>;  // by type

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string declaration(const std::string& c_type, const std::string& declarator, const std::string& comment = "") {
    return c_type + " " + declarator + ";" + (comment.empty() ? "" : " " + comment);
}

std::string numbers(std::uint32_t number, std::uint32_t bit) {
    return std::to_string(number) + ", bit " + std::to_string(bit);
}

// A word of the header without the comma or semicolon behind it.
std::string bare(std::string word) {
    if (!word.empty() && (word.back() == ',' || word.back() == ';')) word.pop_back();
    return word;
}

// `uint32_t f6; /* 6, bit 2; and a remark */` without the remark. `words` has at least two elements.
std::string member_of(const std::vector<std::string>& words) {
    const bool numbered = words.size() > 5 && words[2] == "/*" && words[4] == "bit";
    return declaration(words[0], bare(words[1]), numbered ? words[3] + " bit " + bare(words[5]) : "");
}

Header parse_header(const std::string& text) {
    Header header;
    std::vector<std::string>* members = nullptr;
    std::vector<std::string>* enumerators = nullptr;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream stream(line);
        const std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
        if (words.size() == 4 && words[0] == "typedef" && words[3] == "{") {
            members = &header[words[2].substr(prefix.size())].members;
        } else if (words.size() == 3 && words[0] == "enum" && words[2] == "{") {
            enumerators = &header[words[1].substr(prefix.size(), words[1].rfind('_') - prefix.size())].enumerators;
        } else if (!words.empty() && words[0][0] == '}') {
            members = enumerators = nullptr;
        } else if (words.size() >= 2 && members != nullptr) {
            members->push_back(member_of(words));
        } else if (words.size() >= 3 && enumerators != nullptr) {
            enumerators->push_back(words[0] + " " + words[1] + " " + bare(words[2]));
        }
    }
    return header;
}

std::string c_type_of(const Row& row) {
    if (row.kind == "uint32") return "uint32_t";
    if (row.kind == "uint64") return "uint64_t";
    if (row.kind == "bool" || row.kind == "bytes") return "uint8_t";
    if (row.kind == "string") return "char";
    return prefix + row.nested;
}

Declared expected_declarations(const Type& type) {
    Declared declared;
    for (const Row& row : type.rows) {
        const bool pointer = row.kind == "string" || row.kind == "bytes" || row.kind == "list";
        declared.members.push_back(
            declaration(c_type_of(row), (pointer ? "*" : "") + row.name, numbers(row.number, row.bit)));
        if (row.kind == "bytes") declared.members.push_back(declaration("uint64_t", row.name + "_length"));
        if (row.kind == "list") declared.members.push_back(declaration("uint32_t", row.name + "_count"));
        declared.enumerators.push_back("VESK_" + upper(type.name + "_" + row.name) + " = " + std::to_string(row.bit));
    }
    declared.members.push_back(declaration("uint8_t", "present[" + std::to_string(type.presence_bytes) + "]"));
    return declared;
}

}  // namespace

Findings check_header(const Table& table, const std::string& unit, const std::string& text) {
    Findings findings;
    const Header header = parse_header(text);
    for (const Type& type : table.types) {
        if (type.unit != unit) continue;
        const std::string what = unit + ".h: " + type.name;
        const auto found = header.find(type.name);
        if (found == header.end()) {
            findings.push_back(what + " is missing");
            continue;
        }
        const Declared expected = expected_declarations(type);
        compare_lines(expected.members, found->second.members, what, findings);
        compare_lines(expected.enumerators, found->second.enumerators, what, findings);
    }
    for (const auto& [name, declared] : header) {
        const Type* type = table.find(name);
        if (type == nullptr || type->unit != unit) findings.push_back(unit + ".h: " + name + " is not in the table");
    }
    return findings;
}

}  // namespace vesk::test
