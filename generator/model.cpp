#include "generator/model.hpp"

#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <sstream>

namespace vesk::generator {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::SourceLocation;

std::string without_proto(const std::string& file_name) { return file_name.substr(0, file_name.rfind(".proto")); }

// One line, as a comment's text stands in the .proto file.
std::string join_lines(const std::string& comment) {
    std::istringstream words(comment);
    std::string line;
    for (std::string word; words >> word;) line += (line.empty() ? "" : " ") + word;
    return line;
}

// "---- Entity common data ----" names a family; other detached comments are the .proto file's own.
std::string read_family(const SourceLocation& location) {
    std::string family;
    for (const std::string& comment : location.leading_detached_comments) {
        const std::string line = comment.substr(0, comment.find('\n'));
        const std::size_t first = line.find_first_not_of("- ");
        if (line.find("----") != std::string::npos && first != std::string::npos) {
            family = line.substr(first, line.find_last_not_of("- ") - first + 1);
        }
    }
    return family;
}

// protoc puts the file's name before every error line.
std::string describe(const Descriptor& message) { return message.name(); }
std::string describe(const FieldDescriptor& field) { return field.containing_type()->name() + "." + field.name(); }

bool read_kind(const FieldDescriptor& field, Kind* kind, std::string* error) {
    const bool is_message = field.type() == FieldDescriptor::TYPE_MESSAGE;
    if (field.is_repeated() && !is_message) {
        *error = describe(field) + ": only messages can be repeated; put the value into a message of its own";
        return false;
    }
    if (field.is_required() || field.is_extension() || field.containing_oneof() != nullptr) {
        *error = describe(field) + ": must be a plain optional or repeated field, not required and not in a oneof";
        return false;
    }
    switch (field.type()) {
        case FieldDescriptor::TYPE_UINT32: *kind = Kind::uint32; return true;
        case FieldDescriptor::TYPE_UINT64: *kind = Kind::uint64; return true;
        case FieldDescriptor::TYPE_BOOL: *kind = Kind::boolean; return true;
        case FieldDescriptor::TYPE_STRING: *kind = Kind::string; return true;
        case FieldDescriptor::TYPE_BYTES: *kind = Kind::bytes; return true;
        case FieldDescriptor::TYPE_MESSAGE: *kind = field.is_repeated() ? Kind::list : Kind::message; return true;
        default:
            *error = describe(field) + ": type " + field.type_name() +
                     " is not supported; use uint32, uint64, bool, string, bytes or a message";
            return false;
    }
}

// C lays a structure out where it stands: what is held by value must have been declared before.
bool is_declared_before(const Descriptor& nested, const Descriptor& holder) {
    return nested.file() != holder.file() || nested.index() < holder.index();
}

bool read_field(const FieldDescriptor& descriptor, const std::string& prefix, Field* field, std::string* error) {
    if (!read_kind(descriptor, &field->kind, error)) return false;
    field->name = descriptor.name();
    field->number = static_cast<std::uint32_t>(descriptor.number());
    if (const Descriptor* nested = descriptor.message_type()) {
        if (!is_declared_before(*nested, *descriptor.containing_type())) {
            *error =
                describe(descriptor) + ": " + nested->name() + " must be declared before the message that holds it";
            return false;
        }
        field->nested = prefix + "_" + nested->name();
    }
    SourceLocation location;
    if (descriptor.GetSourceLocation(&location)) field->comment = join_lines(location.trailing_comments);
    return true;
}

bool read_message(const Descriptor& descriptor, const std::string& prefix, Message* message, std::string* error) {
    if (descriptor.field_count() == 0) {
        *error = describe(descriptor) + ": a message needs at least one field";
        return false;
    }
    if (descriptor.nested_type_count() + descriptor.enum_type_count() + descriptor.extension_range_count() != 0) {
        *error = describe(descriptor) + ": nested types, enumerations and extensions are not supported";
        return false;
    }
    message->name = prefix + "_" + descriptor.name();
    SourceLocation location;
    if (descriptor.GetSourceLocation(&location)) {
        message->family = read_family(location);
        message->comment = join_lines(location.leading_comments);
    }
    if (message->comment.empty()) {
        *error = describe(descriptor) + ": needs a comment above it that says what the message is";
        return false;
    }
    for (int i = 0; i < descriptor.field_count(); ++i) {
        Field field;
        if (!read_field(*descriptor.field(i), prefix, &field, error)) return false;
        message->fields.push_back(field);
    }
    return true;
}

// Adds the messages of other libraries that the file's messages hold.
void add_imported(const FileDescriptor& file, const Options& options, std::set<const Descriptor*>* messages) {
    for (int i = 0; i < file.message_type_count(); ++i) {
        for (int j = 0; j < file.message_type(i)->field_count(); ++j) {
            const Descriptor* nested = file.message_type(i)->field(j)->message_type();
            if (nested == nullptr || nested->file() == &file) continue;
            if (options.imported.contains(nested->file()->name())) messages->insert(nested);
        }
    }
}

void read_imports(const FileDescriptor& file, const Options& options, Unit* unit) {
    std::set<const Descriptor*> held;
    std::set<const Descriptor*> known;
    add_imported(file, options, &held);
    for (int i = 0; i < file.dependency_count(); ++i) {
        const FileDescriptor& import = *file.dependency(i);
        unit->imports.push_back(without_proto(import.name()));
        if (options.imported.contains(import.name())) continue;
        unit->library_imports.push_back(without_proto(import.name()));
        add_imported(import, options, &known);
    }
    for (const Descriptor* message : held) {
        if (known.contains(message)) continue;
        unit->imported_messages[options.prefix + "_" + message->name()] = without_proto(message->file()->name());
    }
}

}  // namespace

std::string upper_case(const std::string& text) {
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    return upper;
}

bool read_options(const std::string& parameter, Options* options, std::string* error) {
    std::vector<std::pair<std::string, std::string>> pairs;
    google::protobuf::compiler::ParseGeneratorParameter(parameter, &pairs);
    for (const auto& [name, value] : pairs) {
        if (name == "prefix" && !value.empty()) {
            options->prefix = value;
        } else if (name == "imported" && !value.empty()) {
            options->imported.insert(value);
        } else if (name == "document" && !value.empty()) {
            options->document = value;
        } else if (name == "sizes" && !value.empty()) {
            options->sizes = value;
        } else {
            *error = "parameter \"" + name +
                     "\" is not understood; there are prefix=NAME, imported=FILE, document=FILE and sizes=FILE";
            return false;
        }
    }
    return true;
}

bool read_unit(const FileDescriptor& file, const Options& options, Unit* unit, std::string* error) {
    if (file.syntax() != FileDescriptor::SYNTAX_PROTO2) {
        *error = "must be proto2: only there every field has presence";
        return false;
    }
    unit->name = without_proto(file.name());
    unit->prefix = options.prefix;
    SourceLocation location;
    const std::vector<int> syntax_line{google::protobuf::FileDescriptorProto::kSyntaxFieldNumber};
    if (file.GetSourceLocation(syntax_line, &location)) {
        unit->comment = join_lines(location.leading_comments);
        for (const std::string& comment : location.leading_detached_comments) {
            if (comment.find("SPDX-License-Identifier:") != std::string::npos) unit->licence = join_lines(comment);
        }
    }
    read_imports(file, options, unit);
    for (int i = 0; i < file.message_type_count(); ++i) {
        Message message;
        if (!read_message(*file.message_type(i), options.prefix, &message, error)) return false;
        unit->messages.push_back(message);
    }
    return true;
}

}  // namespace vesk::generator
