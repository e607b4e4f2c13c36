// The messages of others: any .proto file, as far as C has a structure for what is in it.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/stubs/strutil.h>

#include <algorithm>
#include <iostream>

#include "generator/model.hpp"

namespace vesk::generator {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::SourceLocation;

constexpr int most_fields = 64;  // of a message: its presence bits fit into a word

template <class AnyDescriptor>
std::string read_comment(const AnyDescriptor& descriptor) {
    SourceLocation location;
    if (!descriptor.GetSourceLocation(&location)) return {};
    return join_lines(location.leading_comments + " " + location.trailing_comments);
}

// What the wire format has and a structure does not.
void refuse_what_is_not_supported(const FieldDescriptor& field) {
    const FileDescriptor& file = *field.file();
    if (field.is_map()) {
        refuse(field, file,
               "a map has no structure in C; write the same bytes as `message Entry { optional KEY key = 1; "
               "optional VALUE value = 2; }` and `repeated Entry " +
                   field.name() + " = " + std::to_string(field.number()) + ";`");
    }
    if (field.type() == FieldDescriptor::TYPE_GROUP) {
        refuse(field, file, "a group is not read or written; make it a message and a field of that (its bytes change)");
    }
}

void refuse_what_is_not_supported(const Descriptor& message) {
    const FileDescriptor& file = *message.file();
    if (message.extension_range_count() != 0) {
        refuse(message, file,
               "extensions are not supported; declare the fields of those that you use in the message itself");
    }
    if (message.extension_count() != 0) {
        refuse(*message.extension(0), file,
               "extensions are not supported; declare the field in the message that it extends");
    }
    for (int i = 0; i < message.field_count(); ++i) refuse_what_is_not_supported(*message.field(i));
    if (message.real_oneof_decl_count() != 0) {
        refuse(*message.oneof_decl(0), file,
               "a oneof has no structure in C; write its fields as optional ones (the bytes stay the same) "
               "and mark one of them");
    }
    if (message.field_count() > most_fields) {
        refuse(message, file,
               "has " + std::to_string(message.field_count()) + " fields, and at most " + std::to_string(most_fields) +
                   " are supported; leave out those that you do not use (they are then skipped)");
    }
}

class Reader {
public:
    Reader(const std::vector<const FileDescriptor*>& files, const Options& options)
        : options_(options), named_(files.begin(), files.end()) {
        for (const FileDescriptor* file : files) add_file(*file);
    }

    Library read() {
        Library library;
        library.name = options_.library.empty() ? prefix_of(*named_.front()) : options_.library;
        for (const char* const end : {"_types", "_runtime", "_all_types", "_type_named"})
            names_.add(library.name + end);
        names_.add(upper_case(library.name) + "_TYPES_H");
        for (const FileDescriptor* file : files_) library.units.push_back(read_unit(*file));
        const auto has_messages = [](const Unit& unit) { return !unit.messages.empty(); };
        if (std::none_of(library.units.begin(), library.units.end(), has_messages)) {
            refuse_file(*files_.back(), "there is no message in it");
        }
        return library;
    }

private:
    // ---- Which files -----------------------------------------------------------------------------------------------

    bool is_on_command_line(const FileDescriptor& file) const {
        return std::find(named_.begin(), named_.end(), &file) != named_.end();
    }

    // Each file after those with messages or enumerations that its own messages hold. Other imports are not looked at.
    void add_file(const FileDescriptor& file) {
        if (std::find(files_.begin(), files_.end(), &file) != files_.end()) return;
        for (const FileDescriptor* import : held_files(file)) add_file(*import);
        files_.push_back(&file);
    }

    static std::vector<const FileDescriptor*> held_files(const FileDescriptor& file) {
        std::vector<const FileDescriptor*> held;
        for (int i = 0; i < file.message_type_count(); ++i) add_held_files(*file.message_type(i), &held);
        return held;
    }

    static void add_held_files(const Descriptor& message, std::vector<const FileDescriptor*>* held) {
        for (int i = 0; i < message.field_count(); ++i) {
            const FieldDescriptor& field = *message.field(i);
            const FileDescriptor* file = message.file();
            if (field.message_type() != nullptr) file = field.message_type()->file();
            if (field.enum_type() != nullptr) file = field.enum_type()->file();
            if (file != message.file() && std::find(held->begin(), held->end(), file) == held->end()) {
                held->push_back(file);
            }
        }
        for (int i = 0; i < message.nested_type_count(); ++i) add_held_files(*message.nested_type(i), held);
    }

    // ---- A file ----------------------------------------------------------------------------------------------------

    std::string prefix_of(const FileDescriptor& file) const {
        if (!options_.prefix.empty() && is_on_command_line(file)) return options_.prefix;
        const std::string path = without_proto(file.name());
        const std::string name = file.package().empty() ? path.substr(path.rfind('/') + 1) : file.package();
        const std::string prefix = identifier_of(name);
        if (!is_identifier(prefix) || is_reserved_prefix(prefix)) {
            refuse_file(
                file, "names in C cannot begin with \"" + prefix + "\"; give them another beginning with prefix=NAME");
        }
        return prefix;
    }

    Unit read_unit(const FileDescriptor& file) {
        const std::string prefix = prefix_of(file);
        Unit unit;
        unit.name = without_proto(file.name());
        unit.guard = upper_case(identifier_of("vesk_of_" + prefix + "_" + unit.name)) + "_H";
        unit.header = "\"" + unit.name + ".h\"";
        unit.field_lists = "\"" + unit.name + "_fields.hpp\"";
        for (const FileDescriptor* import : held_files(file)) {
            unit.imported_headers.push_back("\"" + without_proto(import->name()) + ".h\"");
            unit.imported_field_lists.push_back("\"" + without_proto(import->name()) + "_fields.hpp\"");
        }
        read_file_comment(file, &unit);
        if (file.extension_count() != 0) {
            refuse(*file.extension(0), file,
                   "extensions are not supported; declare the field in the message that it extends");
        }
        for (int i = 0; i < file.service_count(); ++i) remark_service(*file.service(i));
        for (int i = 0; i < file.enum_type_count(); ++i) {
            unit.enumerations.push_back(read_enumeration(*file.enum_type(i), prefix));
        }
        for (const Descriptor* message : in_order_of_need(file))
            unit.messages.push_back(read_message(*message, prefix));
        unit.notes = notes_;
        notes_.clear();
        return unit;
    }

    static void remark_service(const google::protobuf::ServiceDescriptor& service) {
        SourceLocation location;
        const int line = service.GetSourceLocation(&location) ? location.start_line + 1 : 1;
        std::cerr << service.file()->name() << ":" << line << ": service " << service.name()
                  << " is skipped; its messages are not\n";
    }

    // The messages of a file in the order of their declaration, but what another one holds before that.
    static std::vector<const Descriptor*> in_order_of_need(const FileDescriptor& file) {
        std::vector<const Descriptor*> declared;
        for (int i = 0; i < file.message_type_count(); ++i) add_with_nested(*file.message_type(i), &declared);
        for (const Descriptor* message : declared) refuse_what_is_not_supported(*message);
        std::vector<const Descriptor*> ordered;
        std::vector<const FieldDescriptor*> path;
        for (const Descriptor* message : declared) add_after_what_it_holds(*message, &path, &ordered);
        return ordered;
    }

    static void add_with_nested(const Descriptor& message, std::vector<const Descriptor*>* declared) {
        if (message.options().map_entry()) return;  // the field that it is of is refused
        declared->push_back(&message);
        for (int i = 0; i < message.nested_type_count(); ++i) add_with_nested(*message.nested_type(i), declared);
    }

    // `path` has the fields by which the message was reached.
    static void add_after_what_it_holds(const Descriptor& message, std::vector<const FieldDescriptor*>* path,
                                        std::vector<const Descriptor*>* ordered) {
        if (std::find(ordered->begin(), ordered->end(), &message) != ordered->end()) return;
        for (int i = 0; i < message.field_count(); ++i) {
            const FieldDescriptor& field = *message.field(i);
            if (field.message_type() == nullptr || field.message_type()->file() != message.file()) continue;
            path->push_back(&field);
            refuse_circle(*path);
            add_after_what_it_holds(*field.message_type(), path, ordered);
            path->pop_back();
        }
        ordered->push_back(&message);
    }

    static void refuse_circle(const std::vector<const FieldDescriptor*>& path) {
        const Descriptor* const held = path.back()->message_type();
        const auto first = std::find_if(path.begin(), path.end(),
                                        [&](const FieldDescriptor* field) { return field->containing_type() == held; });
        if (first == path.end()) return;
        std::string way;
        for (auto field = first + 1; field < path.end(); ++field) {
            way += (way.empty() ? ", by way of " : ", ") + (*field)->containing_type()->name() + "." + (*field)->name();
        }
        refuse(**first, *held->file(),
               "a " + held->name() + " would hold a " + held->name() + way +
                   "; send a list of all of them instead, in which each names the one that it belongs to by a number");
    }

    // ---- Enumerations ----------------------------------------------------------------------------------------------

    Enumeration read_enumeration(const EnumDescriptor& descriptor, const std::string& prefix) {
        Enumeration enumeration;
        enumeration.name = add_type(descriptor, prefix);
        enumeration.comment = read_comment(descriptor);
        for (int i = 0; i < descriptor.value_count(); ++i) {
            const EnumValueDescriptor& value = *descriptor.value(i);
            const std::string name = names_.add_by_rule(upper_case(enumeration.name + "_" + value.name()));
            if (name.empty())
                refuse(value, *descriptor.file(), clash(upper_case(enumeration.name + "_" + value.name())));
            enumeration.values.push_back({name, value.number(), read_comment(value)});
        }
        return enumeration;
    }

    // ---- Messages --------------------------------------------------------------------------------------------------

    Message read_message(const Descriptor& descriptor, const std::string& prefix) {
        Message message;
        message.name = message.table_name = add_type(descriptor, prefix);
        for (const char* const end : {"_presence", "_encode_ext", "_decode_ext", "_duplicate", "_free_ext"}) {
            if (!names_.add(message.name + end)) refuse(descriptor, *descriptor.file(), clash(message.name + end));
        }
        message.comment = read_comment(descriptor);
        for (int i = 0; i < descriptor.enum_type_count(); ++i) {
            message.enumerations.push_back(read_enumeration(*descriptor.enum_type(i), prefix));
        }
        MemberScope members(names_);
        for (int i = 0; i < descriptor.field_count(); ++i) {
            message.fields.push_back(read_field(*descriptor.field(i), message, &members));
        }
        return message;
    }

    Field read_field(const FieldDescriptor& descriptor, const Message& message, MemberScope* members) {
        Field field;
        field.name = descriptor.name();
        field.kind = kind_of(descriptor);
        field.is_repeated = descriptor.is_repeated() && field.kind != Kind::list;
        field.is_packed = descriptor.is_packed();
        field.number = static_cast<std::uint32_t>(descriptor.number());
        field.comment = read_comment(descriptor);
        if (descriptor.message_type() != nullptr) field.nested = types_.at(descriptor.message_type()->full_name());

        const auto need = [&](std::string name, const std::string& wanted) {
            if (name.empty()) refuse(descriptor, *descriptor.file(), clash(wanted));
            return name;
        };
        field.member = need(members->add_by_rule(field.name), field.name);
        std::string end;
        if (field.kind == Kind::bytes) end = "_length";
        if (descriptor.is_repeated()) end = "_count";
        if (!end.empty()) field.count_member = need(members->add_by_rule(field.name + end), field.name + end);
        const std::string presence = upper_case(message.name + "_" + field.name);
        field.presence = need(names_.add_by_rule(presence), presence);
        add_remarks(descriptor, &field);
        return field;
    }

    void add_remarks(const FieldDescriptor& descriptor, Field* field) {
        const auto remark = [&](const std::string& text) { field->remarks += "; " + text; };
        if (field->member != field->name) {
            remark("\"" + field->name + "\" in the schema");
            note(
                "in the schema: a name that C or the structure has already gets an underscore at its end; underscores "
                "at its beginning, and all but one of several in a row, are left out. The same goes for enumerators.");
        }
        if (const EnumDescriptor* enumeration = descriptor.enum_type()) {
            remark("enum " + name_of(*enumeration));
            note("enum: the values that the schema names. Any other is read, kept and written, too.");
        }
        if (field->is_packed) remark("packed");
        if (descriptor.has_default_value()) {
            remark("default " + default_of(descriptor));
            note("default: what the schema takes the field for where it is absent. Nothing here sets it.");
        }
        if (descriptor.is_required()) {
            remark("required");
            note("required: the schema wants the field in every message. Nothing here enforces it.");
        }
        if (!descriptor.is_repeated() && !descriptor.has_presence()) {
            remark("no presence");
            note(
                "no presence: others write the field if it is not 0, false or empty, and take an absent one for that. "
                "Here it has a presence bit as any other, and is written if that is set.");
        }
    }

    static std::string default_of(const FieldDescriptor& descriptor) {
        google::protobuf::FieldDescriptorProto proto;
        descriptor.CopyTo(&proto);
        if (descriptor.type() == FieldDescriptor::TYPE_STRING) {
            return join_lines("\"" + google::protobuf::CEscape(proto.default_value()) + "\"");
        }
        if (descriptor.type() == FieldDescriptor::TYPE_BYTES) return join_lines("\"" + proto.default_value() + "\"");
        return proto.default_value();
    }

    void note(const std::string& text) {
        if (std::find(notes_.begin(), notes_.end(), text) == notes_.end()) notes_.push_back(text);
    }

    // ---- Names -----------------------------------------------------------------------------------------------------

    static std::string clash(const std::string& name) {
        return "there is another " + name + " in C, or none that can be made of this; give it another name";
    }

    // PREFIX_Outer_Inner.
    template <class AnyDescriptor>
    static std::string c_name(const AnyDescriptor& type, const std::string& prefix) {
        const std::string& package = type.file()->package();
        return identifier_of(prefix + "_" +
                             (package.empty() ? type.full_name() : type.full_name().substr(package.size() + 1)));
    }

    template <class AnyDescriptor>
    std::string add_type(const AnyDescriptor& type, const std::string& prefix) {
        const std::string name = c_name(type, prefix);
        if (!names_.add(name)) refuse(type, *type.file(), clash(name));
        types_[type.full_name()] = name;
        return name;
    }

    // An enumeration may be declared after what holds it.
    std::string name_of(const EnumDescriptor& enumeration) const {
        return c_name(enumeration, prefix_of(*enumeration.file()));
    }

    const Options& options_;
    std::vector<const FileDescriptor*> named_;
    std::vector<const FileDescriptor*> files_;
    Scope names_;
    std::map<std::string, std::string> types_;
    std::vector<std::string> notes_;
};

}  // namespace

Library read_library(const std::vector<const FileDescriptor*>& files, const Options& options) {
    return Reader(files, options).read();
}

}  // namespace vesk::generator
