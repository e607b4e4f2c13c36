// The verbs that print something about a type or an input, but for the map and the guess.
#include <vesk/vesk_text.h>

#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/inputs.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/spans.hpp"
#include "tools/vesk/table.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

using Json = nlohmann::ordered_json;

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

Json json_of_field(const vesk_field* field) {
    const vesk_type* const nested = vesk_field_nested(field);
    Json json{{"number", vesk_field_number(field)},
              {"name", vesk_field_name(field)},
              {"kind", kind_name(field->kind)},
              {"presence_bit", field->presence_bit},
              {"offset", field->offset}};
    if (field->size_offset != 0) json["size_offset"] = field->size_offset;
    if (nested != nullptr) json["nested"] = vesk_type_name(nested);
    return json;
}

std::vector<std::string> types_that_nest(const vesk_type* type) {
    std::vector<std::string> names;
    for (const vesk_type* other : all_types()) {
        for (std::uint32_t place = 0; place < other->field_count; ++place) {
            const vesk_type* const nested = vesk_field_nested(vesk_type_field(other, place));
            if (nested == nullptr || std::string(vesk_type_name(nested)) != vesk_type_name(type)) continue;
            names.push_back(vesk_type_name(other));
            break;
        }
    }
    return names;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "nothing" : text;
}

// The line of a path and a value, for peek and diff.
std::string value_in_words(const vesk_value& value, bool of_message) {
    const std::string_view bytes(static_cast<const char*>(value.data), value.data != nullptr ? value.length : 0);
    switch (value.kind) {
        case VESK_KIND_UINT32:
        case VESK_KIND_UINT64: return std::to_string(value.number);
        case VESK_KIND_BOOL: return of_message ? std::to_string(value.number) : value.number != 0 ? "true" : "false";
        case VESK_KIND_STRING: return quote(bytes, 1 << 12);
        case VESK_KIND_BYTES: {
            std::string hex;
            for (const char byte : bytes.substr(0, 32)) {
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
                hex += digits;
            }
            return std::to_string(bytes.size()) + " bytes" + (hex.empty() ? "" : ": " + hex) +
                   (bytes.size() > 32 ? "..." : "");
        }
        case VESK_KIND_LIST: return "a list of " + std::to_string(value.count);
        default: return of_message ? "a message" : "a message of " + std::to_string(value.length) + " bytes";
    }
}

}  // namespace

int show_types(const Request& request) {
    Output output;
    Json all = Json::array();
    for (const vesk_type* type : all_types()) {
        all.push_back({{"name", vesk_type_name(type)},
                       {"unit", vesk_type_unit(type)},
                       {"fields", type->field_count},
                       {"size", type->structure_size}});
    }
    if (request.json) {
        output.write(all.dump(2) + "\n");
    } else {
        output.write(padded("NAME", 36) + padded("UNIT", 16) + padded("FIELDS", 8) + "SIZE\n");
        for (const Json& type : all) {
            output.write(padded(type["name"], 36) + padded(type["unit"], 16) + padded(type["fields"].dump(), 8) +
                         type["size"].dump() + "\n");
        }
    }
    output.close();
    return status_ok;
}

int show_type(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    Output output;
    Json fields = Json::array();
    std::vector<std::string> nests;
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        fields.push_back(json_of_field(field));
        if (const vesk_type* nested = vesk_field_nested(field)) {
            if (std::find(nests.begin(), nests.end(), vesk_type_name(nested)) == nests.end()) {
                nests.push_back(vesk_type_name(nested));
            }
        }
    }
    const std::vector<std::string> nested_by = types_that_nest(type);
    if (request.json) {
        output.write(Json{{"name", vesk_type_name(type)},
                          {"unit", vesk_type_unit(type)},
                          {"size", type->structure_size},
                          {"alignment", type->alignment},
                          {"presence_offset", type->presence_offset},
                          {"fields", fields},
                          {"nests", nests},
                          {"nested_by", nested_by}}
                         .dump(2) +
                     "\n");
        output.close();
        return status_ok;
    }
    output.write(std::string(vesk_type_name(type)) + ", " + vesk_type_unit(type) + ": a structure of " +
                 std::to_string(type->structure_size) + " bytes, presence bits from " +
                 std::to_string(type->presence_offset) + " on\n");
    output.write(padded("NO.", 5) + padded("NAME", 28) + padded("KIND", 36) + padded("BIT", 5) + "OFFSET\n");
    for (const Json& field : fields) {
        std::string kind = field["kind"];
        if (field.contains("nested")) kind += (kind == "list" ? " of " : " ") + std::string(field["nested"]);
        output.write(padded(field["number"].dump(), 5) + padded(field["name"], 28) + padded(kind, 36) +
                     padded(field["presence_bit"].dump(), 5) + field["offset"].dump() + "\n");
    }
    output.write("nests:     " + joined(nests) + "\nnested by: " + joined(nested_by) + "\n");
    output.close();
    return status_ok;
}

int check_files(const Request& request) {
    Output output;
    const int status = for_each_subject(request, [&](const Subject& subject) {
        const vesk_report report = check(subject.type, subject.data, subject.length);
        if (request.json) {
            const Json json{{"file", subject.name},
                            {"code", report.code},
                            {"at", report.code == VESK_OK ? Json(nullptr) : Json(report.at)},
                            {"path", report.path},
                            {"bytes", report.cost.bytes},
                            {"blocks", report.cost.blocks},
                            {"largest", report.cost.largest},
                            {"lost_bytes", report.lost_bytes},
                            {"lost_blocks", report.lost_blocks},
                            {"unknown_bytes", report.unknown_bytes}};
            output.write(json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
        } else {
            output.write(quote_name(subject.name) + ": " + verdict(report) + "; asks for " + cost(report) + "\n");
        }
        return report.code == VESK_OK ? status_ok : status_failed;
    });
    output.close();
    return status;
}

int decode_files(const Request& request) {
    Output output;
    const int status = for_each_subject(request, [&](const Subject& subject) {
        vesk_text_options options = vesk_default_text_options();
        options.flags = VESK_TEXT_LOSSLESS;
        vesk_text_report report;
        report.size = sizeof report;
        std::int32_t code;
        if (request.table) {
            std::string json;
            code = vesk_json_print_encoded(
                subject.type, subject.data, subject.length,
                [](const char* text, std::size_t length, void* context) {
                    static_cast<std::string*>(context)->append(text, length);
                    return std::int32_t{0};
                },
                &json, &report, &options);
            if (code == VESK_OK) output.write(print_table(json));
        } else {
            const auto print = request.text ? vesk_text_print_encoded : vesk_json_print_encoded;
            code = print(subject.type, subject.data, subject.length, Output::write_to, &output, &report, &options);
        }
        output.rethrow();
        if (code == VESK_OK) return status_ok;
        const vesk_report why = check(subject.type, subject.data, subject.length);
        std::cerr << "vesk: " << quote_name(subject.name) << ": "
                  << (why.code != VESK_OK ? verdict(why) : std::string(report.path) + ": " + report.reason) << "\n";
        return status_failed;
    });
    output.close();
    return status;
}

int encode_file(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    const Input input(request.files.front(), Form::raw);
    Message message(type);
    vesk_text_report report;
    report.size = sizeof report;
    const auto parse = request.text ? vesk_text_parse : vesk_json_parse;
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_LOSSLESS;
    std::int32_t code = parse(type, message.get(), reinterpret_cast<const char*>(input.data()), input.size(),
                              vesk_arena_alloc, message.arena(), &report, &options);
    if (code != VESK_OK) {
        const std::string place =
            report.line != 0 ? ":" + std::to_string(report.line) + ":" + std::to_string(report.column) : "";
        throw Failure(quote_name(input.name()) + place + ": " +
                      (report.path[0] != '\0' ? std::string(report.path) + ": " : "") + report.reason);
    }
    void* bytes;
    std::uint64_t length;
    code = vesk_encode(type, message.get(), vesk_arena_alloc, message.arena(), &bytes, &length);
    if (code != VESK_OK) throw Failure(quote_name(input.name()) + ": " + vesk_toolkit_result_text(code));
    Output output;
    output.write(in_form({static_cast<const char*>(bytes), length}, request.form));
    output.close();
    return status_ok;
}

int peek_file(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    const Input input(request.files.front(), request.form);
    vesk_value value;
    value.size = sizeof value;
    const std::int32_t code = vesk_peek(type, request.path.c_str(), input.data(), input.size(), &value, nullptr);
    if (code == VESK_NO_SUCH_PATH || code == VESK_ABSENT || code == VESK_PAST_THE_END || code == VESK_OPAQUE) {
        throw Failure(quote(request.path) + ": " + vesk_toolkit_result_text(code));
    }
    if (code != VESK_OK) {
        throw Failure(quote_name(input.name()) + ": " + verdict(check(type, input.data(), input.size())));
    }
    Output output;
    if (value.kind == VESK_KIND_MESSAGE && value.type != nullptr) {
        vesk_text_options options = vesk_default_text_options();
        options.flags = VESK_TEXT_LOSSLESS;
        vesk_json_print_encoded(value.type, value.data, value.length, Output::write_to, &output, nullptr, &options);
        output.rethrow();
    } else {
        output.write(value_in_words(value, false) + "\n");
    }
    output.close();
    return status_ok;
}

int diff_files(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    Message left(type);
    Message right(type);
    Message* const messages[] = {&left, &right};
    for (std::size_t side = 0; side < 2; ++side) {
        const Input input(request.files[side], request.form);
        if (messages[side]->decode(input.data(), input.size()) != VESK_OK) {
            throw Failure(quote_name(input.name()) + ": " + verdict(check(type, input.data(), input.size())));
        }
    }
    Output output;
    std::uint64_t differences = 0;
    const std::int32_t code = vesk_diff(
        type, left.get(), right.get(),
        [](const char* path, const vesk_value* one, const vesk_value* other, void* context) {
            const std::string line = std::string(path) + ": " +
                                     (one != nullptr ? value_in_words(*one, true) : "absent") + " | " +
                                     (other != nullptr ? value_in_words(*other, true) : "absent") + "\n";
            return Output::write_to(line.data(), line.size(), context);
        },
        &output, &differences, nullptr);
    output.rethrow();
    if (code != VESK_OK) throw Failure(vesk_toolkit_result_text(code));
    output.close();
    return differences == 0 ? status_ok : status_failed;
}

}  // namespace vesk::tool
