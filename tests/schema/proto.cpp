#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <stdexcept>

#include "tests/schema/checks.hpp"

namespace vesk::test {
namespace {

using google::protobuf::DescriptorProto;
using google::protobuf::FieldDescriptorProto;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;

// A kind that the table does not know is named so that it differs from all that it knows.
std::string kind_of(const FieldDescriptorProto& field) {
    const bool repeated = field.label() == FieldDescriptorProto::LABEL_REPEATED;
    if (field.label() == FieldDescriptorProto::LABEL_REQUIRED) return "required";
    if (field.type() == FieldDescriptorProto::TYPE_MESSAGE) return repeated ? "list" : "message";
    if (repeated) return "repeated scalar";
    switch (field.type()) {
        case FieldDescriptorProto::TYPE_UINT32: return "uint32";
        case FieldDescriptorProto::TYPE_UINT64: return "uint64";
        case FieldDescriptorProto::TYPE_BOOL: return "bool";
        case FieldDescriptorProto::TYPE_STRING: return "string";
        case FieldDescriptorProto::TYPE_BYTES: return "bytes";
        default: return FieldDescriptorProto::Type_Name(field.type());
    }
}

// ".vesk.inv_policy" without the package.
std::string nested_type_of(const FieldDescriptorProto& field) {
    return field.type_name().substr(field.type_name().rfind('.') + 1);
}

std::vector<std::string> rows_of(const DescriptorProto& message) {
    std::vector<std::string> rows;
    for (const FieldDescriptorProto& field : message.field()) {
        const std::uint32_t bit = static_cast<std::uint32_t>(rows.size());
        rows.push_back(to_string(
            {static_cast<std::uint32_t>(field.number()), field.name(), kind_of(field), bit, nested_type_of(field)}));
    }
    return rows;
}

std::vector<std::string> rows_of(const Type& type) {
    std::vector<std::string> rows;
    for (const Row& row : type.rows) rows.push_back(to_string(row));
    return rows;
}

void check_file(const Table& table, const std::string& unit, const FileDescriptorProto& file, Findings& findings) {
    for (const DescriptorProto& message : file.message_type()) {
        const Type* type = table.find(message.name());
        if (type == nullptr || type->unit != unit) {
            findings.push_back(file.name() + ": " + message.name() + " is not in the table");
        } else {
            compare_lines(rows_of(*type), rows_of(message), file.name() + ": " + message.name(), findings);
        }
    }
    for (const Type& type : table.types) {
        const auto& messages = file.message_type();
        const bool found = std::any_of(messages.begin(), messages.end(),
                                       [&](const DescriptorProto& message) { return message.name() == type.name; });
        if (type.unit == unit && !found) findings.push_back(file.name() + ": " + type.name + " is missing");
    }
}

}  // namespace

Findings check_proto(const Table& table, const std::string& descriptors) {
    FileDescriptorSet files;
    if (!files.ParseFromString(descriptors)) throw std::runtime_error("not a descriptor set");
    Findings findings;
    for (const FileDescriptorProto& file : files.file()) {
        if (file.package() != "vesk") findings.push_back(file.name() + ": package " + file.package());
        const std::string unit = file.name().substr(0, file.name().find('.'));
        if (unit != entity_identifier().unit) {
            check_file(table, unit, file, findings);
            continue;
        }
        for (const DescriptorProto& message : file.message_type()) {
            if (message.name() != entity_identifier().name) continue;
            compare_lines(rows_of(entity_identifier()), rows_of(message), message.name(), findings);
        }
    }
    return findings;
}

}  // namespace vesk::test
