#include "tools/vesk/table.hpp"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/types.hpp"
#include "tools/vesk/values.hpp"

namespace vesk::tool {
namespace {

constexpr std::size_t most_of_a_string = 4096;

// A list in a structure.
struct List {
    std::string path;
    const vesk_type* type;
    const std::uint8_t* elements;
    std::uint32_t count;
};

// The fields of a message by their paths, nested ones included; its lists are kept for later.
struct Record {
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<List> lists;
};

template <class Member>
Member load(const std::uint8_t* structure, std::uint32_t offset) {
    Member member;
    std::memcpy(&member, structure + offset, sizeof member);
    return member;
}

std::string string_of(const char* string) {
    const std::string quoted = quote(string, most_of_a_string);
    return quoted.substr(1, quoted.size() - 2);
}

std::string bytes_of(const std::uint8_t* data, std::uint64_t length) {
    return bytes_in_words(std::string_view(reinterpret_cast<const char*>(data), length));
}

// The elements of a repeated field, one after the other.
std::string elements_of(const vesk_field* field, const std::uint8_t* structure) {
    const std::uint16_t kind = kind_of_values(field);
    const auto* element = load<const std::uint8_t*>(structure, field->offset);
    std::string text;
    for (auto left = load<std::uint32_t>(structure, field->size_offset); left != 0; --left) {
        if (!text.empty()) text += ", ";
        if (kind == VESK_KIND_STRING) {
            text += quote(load<const char*>(element, 0), most_of_a_string);
        } else if (kind == VESK_KIND_BYTES) {
            const auto bytes = load<vesk_bytes>(element, 0);
            text += bytes_of(bytes.data, bytes.length);
        } else {
            text += number_in_words(kind, load_number(kind, element));
        }
        element += size_of_element(kind);
    }
    return text;
}

std::string value_of(const vesk_field* field, const std::uint8_t* structure) {
    if (is_repeated_field(field)) return elements_of(field, structure);
    if (field->kind == VESK_KIND_STRING) return string_of(load<const char*>(structure, field->offset));
    if (field->kind == VESK_KIND_BYTES) {
        return bytes_of(load<const std::uint8_t*>(structure, field->offset),
                        load<std::uint64_t>(structure, field->size_offset));
    }
    return number_in_words(field->kind, load_number(field->kind, structure + field->offset));
}

// Of a decoded message: what is present has its bit.
void flatten(const vesk_type* type, const std::uint8_t* structure, const std::string& prefix, Record& row) {
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        const std::uint8_t bits = structure[type->presence_offset + field->presence_bit / 8];
        if ((bits >> field->presence_bit % 8 & 1) == 0) continue;
        const std::string path = prefix + vesk_field_name(field);
        const vesk_type* const nested = field->nested_at != 0 ? describe(vesk_field_nested(field)) : nullptr;
        if (field->kind == VESK_KIND_LIST) {
            row.lists.push_back({path, nested, load<const std::uint8_t*>(structure, field->offset),
                                 load<std::uint32_t>(structure, field->size_offset)});
        } else if (field->kind != VESK_KIND_MESSAGE) {
            row.values.emplace_back(path, value_of(field, structure));
        } else if (nested != nullptr) {
            flatten(nested, structure + field->offset, path + ".", row);
        } else {
            row.values.emplace_back(path, opaque_in_words(vesk_field_nested(field)));
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

std::string print_list(const List& list) {
    const std::string title = "\n" + list.path + " (" + std::to_string(list.count) + ")\n";
    if (list.type == nullptr) return title;
    std::vector<std::string> columns{"#"};
    std::vector<Record> rows(list.count);
    std::string nested;
    for (std::size_t element = 0; element < rows.size(); ++element) {
        Record& row = rows[element];
        flatten(list.type, list.elements + element * list.type->structure_size, "", row);
        for (List& inner : row.lists) {
            inner.path = list.path + "[" + std::to_string(element) + "]." + inner.path;
            nested += print_list(inner);
        }
        for (const auto& [path, value] : row.values) {
            if (std::find(columns.begin(), columns.end(), path) == columns.end()) columns.push_back(path);
        }
    }
    std::vector<std::vector<std::string>> table{columns};
    for (std::size_t element = 0; element < rows.size(); ++element) {
        table.emplace_back(columns.size());
        table.back()[0] = std::to_string(element);
        for (const auto& [path, value] : rows[element].values) {
            const auto column = std::find(columns.begin(), columns.end(), path) - columns.begin();
            table.back()[static_cast<std::size_t>(column)] = value;
        }
    }
    return title + print_columns(table, "  ") + nested;
}

}  // namespace

std::string print_columns(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i) line += padded(row[i], widths[i]) + "  ";
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string print_table(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length) {
    Message message(type);
    if (message.decode(bytes, length) != VESK_OK) {
        throw Failure(quote_name(name) + ": " + verdict(check(type, static_cast<const std::uint8_t*>(bytes), length)));
    }
    Record row;
    flatten(type, static_cast<const std::uint8_t*>(message.get()), "", row);
    std::string text;
    if (!row.values.empty()) {
        std::vector<std::vector<std::string>> rows;
        for (const auto& [path, value] : row.values) rows.push_back({path, value});
        text += print_columns(rows, "  ");
    }
    for (const List& list : row.lists) text += print_list(list);
    return text;
}

}  // namespace vesk::tool
