// Message types by name, and the fields of one.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/table.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

using Json = nlohmann::ordered_json;

Json json_of_field(const vesk_field* field) {
    const vesk_type* const nested = vesk_field_nested(field);
    Json json{{"number", vesk_field_number(field)},
              {"name", vesk_field_name(field)},
              {"kind", kind_name(field)},
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
            names.emplace_back(vesk_type_name(other));
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
        std::vector<std::vector<std::string>> rows{{"NAME", "UNIT", "FIELDS", "SIZE"}};
        for (const Json& type : all) {
            rows.push_back({type["name"], type["unit"], type["fields"].dump(), type["size"].dump()});
        }
        output.write(print_columns(rows, ""));
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
                nests.emplace_back(vesk_type_name(nested));
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
    std::vector<std::vector<std::string>> rows{{"NO.", "NAME", "KIND", "BIT", "OFFSET"}};
    for (const Json& field : fields) {
        std::string kind = field["kind"];
        if (field.contains("nested")) kind += (kind == "list" ? " of " : " ") + std::string(field["nested"]);
        rows.push_back(
            {field["number"].dump(), field["name"], kind, field["presence_bit"].dump(), field["offset"].dump()});
    }
    output.write(print_columns(rows, ""));
    output.write("nests:     " + joined(nests) + "\nnested by: " + joined(nested_by) + "\n");
    output.close();
    return status_ok;
}

}  // namespace vesk::tool
