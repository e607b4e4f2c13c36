#include "tools/vesk/table.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tools/vesk/output.hpp"

namespace vesk::tool {
namespace {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::pair<std::string, std::string>>;

std::string scalar(const Json& value) {
    if (!value.is_string()) return value.dump();
    const std::string quoted = quote(value.get<std::string>(), 1 << 12);
    return quoted.substr(1, quoted.size() - 2);
}

// The scalars of a message by their paths; its lists, under theirs, are kept for later.
void flatten(const Json& message, const std::string& prefix, Row& row,
             std::vector<std::pair<std::string, const Json*>>& lists) {
    for (const auto& [name, value] : message.items()) {
        const std::string path = prefix.empty() ? name : prefix + "." + name;
        if (value.is_object()) {
            flatten(value, path, row, lists);
        } else if (value.is_array()) {
            lists.emplace_back(path, &value);
        } else {
            row.emplace_back(path, scalar(value));
        }
    }
}

// Characters, not bytes.
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t to) {
    return text + std::string(to > width(text) ? to - width(text) : 0, ' ');
}

std::string print_rows(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = " ";
        for (std::size_t i = 0; i < row.size(); ++i) line += " " + padded(row[i], widths[i]) + " ";
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string print_message(const Json& message, const std::string& title);

std::string print_list(const Json& list, const std::string& title) {
    std::vector<std::string> columns{"#"};
    std::vector<Row> rows;
    std::string nested;
    for (std::size_t element = 0; element < list.size(); ++element) {
        std::vector<std::pair<std::string, const Json*>> lists;
        rows.emplace_back();
        flatten(list[element], "", rows.back(), lists);
        for (const auto& [path, inner] : lists) {
            nested += print_list(*inner, title + "[" + std::to_string(element) + "]." + path);
        }
        for (const auto& [path, value] : rows.back()) {
            if (std::find(columns.begin(), columns.end(), path) == columns.end()) columns.push_back(path);
        }
    }
    std::vector<std::vector<std::string>> table{columns};
    for (std::size_t element = 0; element < rows.size(); ++element) {
        table.emplace_back(columns.size());
        table.back()[0] = std::to_string(element);
        for (const auto& [path, value] : rows[element]) {
            table.back()[static_cast<std::size_t>(std::find(columns.begin(), columns.end(), path) - columns.begin())] =
                value;
        }
    }
    return "\n" + title + " (" + std::to_string(list.size()) + ")\n" + print_rows(table) + nested;
}

std::string print_message(const Json& message, const std::string& title) {
    Row row;
    std::vector<std::pair<std::string, const Json*>> lists;
    flatten(message, title, row, lists);
    std::string text;
    if (!row.empty()) {
        std::vector<std::vector<std::string>> rows;
        for (const auto& [path, value] : row) rows.push_back({path, value});
        text += print_rows(rows);
    }
    for (const auto& [path, list] : lists) text += print_list(*list, path);
    return text;
}

}  // namespace

std::string print_table(const std::string& json) { return print_message(Json::parse(json), ""); }

}  // namespace vesk::tool
