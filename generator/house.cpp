// This repository's own messages: proto2, with few kinds of fields, each message with a comment and declared before
// what holds it. Each unit has a folder of its own, and its public header is <PREFIX/unit.h>.
#include <google/protobuf/descriptor.h>

#include "generator/model.hpp"

namespace vesk::generator {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::SourceLocation;

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

Kind read_kind(const FieldDescriptor& field) {
    const FileDescriptor& file = *field.file();
    if (field.is_repeated() && field.type() != FieldDescriptor::TYPE_MESSAGE) {
        refuse(field, file, "only messages can be repeated; put the value into a message of its own");
    }
    if (field.is_required() || field.containing_oneof() != nullptr) {
        refuse(field, file, "must be a plain optional or repeated field, not required and not in a oneof");
    }
    const Kind kind = kind_of(field);
    if (kind > Kind::list || field.type() == FieldDescriptor::TYPE_GROUP) {
        refuse(field, file,
               std::string("type ") + field.type_name() +
                   " is not supported; use uint32, uint64, bool, string, bytes or a message");
    }
    return kind;
}

// C lays a structure out where it stands: what is held by value must have been declared before.
bool is_declared_before(const Descriptor& nested, const Descriptor& holder) {
    return nested.file() != holder.file() || nested.index() < holder.index();
}

Field read_field(const FieldDescriptor& descriptor, const Message& message, const std::string& prefix) {
    Field field;
    field.kind = read_kind(descriptor);
    field.name = field.member = descriptor.name();
    if (field.kind == Kind::bytes) field.count_member = field.name + "_length";
    if (field.kind == Kind::list) field.count_member = field.name + "_count";
    field.presence = upper_case(message.name + "_" + field.name);
    field.number = static_cast<std::uint32_t>(descriptor.number());
    if (const Descriptor* nested = descriptor.message_type()) {
        if (!is_declared_before(*nested, *descriptor.containing_type())) {
            refuse(descriptor, *descriptor.file(),
                   nested->name() + " must be declared before the message that holds it");
        }
        field.nested = prefix + "_" + nested->name();
    }
    SourceLocation location;
    if (descriptor.GetSourceLocation(&location)) field.comment = join_lines(location.trailing_comments);
    return field;
}

Message read_message(const Descriptor& descriptor, const std::string& prefix) {
    if (descriptor.field_count() == 0) refuse(descriptor, *descriptor.file(), "a message needs at least one field");
    if (descriptor.nested_type_count() + descriptor.enum_type_count() + descriptor.extension_range_count() != 0) {
        refuse(descriptor, *descriptor.file(), "nested types, enumerations and extensions are not supported");
    }
    Message message;
    message.name = prefix + "_" + descriptor.name();
    message.table_name = descriptor.name();
    SourceLocation location;
    if (descriptor.GetSourceLocation(&location)) {
        message.family = read_family(location);
        message.comment = join_lines(location.leading_comments);
    }
    if (message.comment.empty()) {
        refuse(descriptor, *descriptor.file(), "needs a comment above it that says what the message is");
    }
    for (int i = 0; i < descriptor.field_count(); ++i) {
        message.fields.push_back(read_field(*descriptor.field(i), message, prefix));
    }
    return message;
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

std::string header_of(const Options& options, const std::string& unit) {
    return "<" + options.prefix + "/" + unit + ".h>";
}
std::string field_lists_of(const std::string& unit) { return "\"" + unit + "/" + unit + "_fields.hpp\""; }

void read_imports(const FileDescriptor& file, const Options& options, Unit* unit) {
    std::set<const Descriptor*> held;
    std::set<const Descriptor*> known;
    add_imported(file, options, &held);
    for (int i = 0; i < file.dependency_count(); ++i) {
        const FileDescriptor& import = *file.dependency(i);
        unit->imported_headers.push_back(header_of(options, without_proto(import.name())));
        if (options.imported.contains(import.name())) continue;
        unit->imported_field_lists.push_back(field_lists_of(without_proto(import.name())));
        add_imported(import, options, &known);
    }
    for (const Descriptor* message : held) {
        if (known.contains(message)) continue;
        unit->imported_messages[options.prefix + "_" + message->name()] = {message->name(),
                                                                           without_proto(message->file()->name())};
    }
}

}  // namespace

Unit read_house_unit(const FileDescriptor& file, const Options& options) {
    if (file.syntax() != FileDescriptor::SYNTAX_PROTO2) {
        refuse_file(file, "must be proto2: only there every field has presence");
    }
    Unit unit;
    unit.name = without_proto(file.name());
    unit.guard = upper_case(options.prefix + "_" + unit.name) + "_H";
    unit.header = header_of(options, unit.name);
    unit.field_lists = field_lists_of(unit.name);
    read_file_comment(file, &unit);
    read_imports(file, options, &unit);
    for (int i = 0; i < file.message_type_count(); ++i) {
        unit.messages.push_back(read_message(*file.message_type(i), options.prefix));
    }
    return unit;
}

}  // namespace vesk::generator
