#include "generator/model.hpp"

#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/descriptor.pb.h>

#include <sstream>

namespace vesk::generator {

using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::SourceLocation;

std::string without_proto(const std::string& file_name) { return file_name.substr(0, file_name.rfind(".proto")); }

std::string join_lines(const std::string& comment) {
    std::istringstream words(comment);
    std::string line;
    for (std::string word; words >> word;) line += (line.empty() ? "" : " ") + word;
    // What would begin or end a comment in C.
    for (const char* const mark : {"*/", "/*"}) {
        for (std::size_t at; (at = line.find(mark)) != std::string::npos;) line.insert(at + 1, " ");
    }
    return line;
}

void refuse_file(const FileDescriptor& file, const std::string& what) { throw Refusal{file.name() + ": " + what}; }

void read_file_comment(const FileDescriptor& file, Unit* unit) {
    SourceLocation location;
    const std::vector<int> syntax_line{google::protobuf::FileDescriptorProto::kSyntaxFieldNumber};
    if (!file.GetSourceLocation(syntax_line, &location)) return;
    unit->comment = join_lines(location.leading_comments);
    for (const std::string& comment : location.leading_detached_comments) {
        if (comment.find("SPDX-License-Identifier:") != std::string::npos) unit->licence = join_lines(comment);
    }
}

Kind kind_of(const FieldDescriptor& field) {
    switch (field.type()) {
        case FieldDescriptor::TYPE_UINT32: return Kind::uint32;
        case FieldDescriptor::TYPE_UINT64: return Kind::uint64;
        case FieldDescriptor::TYPE_BOOL: return Kind::boolean;
        case FieldDescriptor::TYPE_STRING: return Kind::string;
        case FieldDescriptor::TYPE_BYTES: return Kind::bytes;
        case FieldDescriptor::TYPE_SINT32: return Kind::sint32;
        case FieldDescriptor::TYPE_SINT64: return Kind::sint64;
        case FieldDescriptor::TYPE_INT32: return Kind::int32;
        case FieldDescriptor::TYPE_INT64: return Kind::int64;
        case FieldDescriptor::TYPE_FIXED32: return Kind::fixed32;
        case FieldDescriptor::TYPE_FIXED64: return Kind::fixed64;
        case FieldDescriptor::TYPE_SFIXED32: return Kind::sfixed32;
        case FieldDescriptor::TYPE_SFIXED64: return Kind::sfixed64;
        case FieldDescriptor::TYPE_FLOAT: return Kind::single_float;
        case FieldDescriptor::TYPE_DOUBLE: return Kind::double_float;
        case FieldDescriptor::TYPE_ENUM: return Kind::enumeration;
        case FieldDescriptor::TYPE_GROUP:
        case FieldDescriptor::TYPE_MESSAGE: break;
    }
    return field.is_repeated() ? Kind::list : Kind::message;
}

Options read_options(const std::string& parameter) {
    Options options;
    std::vector<std::pair<std::string, std::string>> pairs;
    google::protobuf::compiler::ParseGeneratorParameter(parameter, &pairs);
    for (const auto& [name, value] : pairs) {
        if (name == "layout" && value == "house") {
            options.is_house = true;
        } else if ((name == "prefix" || name == "library") && !value.empty()) {
            if (!is_identifier(value) || identifier_of(value) != value) {
                throw Refusal{name + "=" + value + ": must be a name in C, without underscores at its ends"};
            }
            (name == "prefix" ? options.prefix : options.library) = value;
        } else if (name == "imported" && !value.empty()) {
            options.imported.insert(value);
        } else if (name == "document" && !value.empty()) {
            options.document = value;
        } else if (name == "sizes" && !value.empty()) {
            options.sizes = value;
        } else {
            throw Refusal{
                "parameter \"" + name +
                "\" is not understood; there are prefix=NAME and library=NAME, and with layout=house imported=FILE, "
                "document=FILE and sizes=FILE"};
        }
    }
    if (!options.is_house && !(options.imported.empty() && options.document.empty() && options.sizes.empty())) {
        throw Refusal{"imported=FILE, document=FILE and sizes=FILE need layout=house"};
    }
    if (options.is_house && (options.prefix.empty() || !options.library.empty())) {
        throw Refusal{"layout=house needs prefix=NAME, and takes no library=NAME"};
    }
    if (!options.is_house && is_reserved_prefix(options.prefix)) {
        throw Refusal{"prefix=" + options.prefix + ": such names belong to the library itself or to C; take another"};
    }
    return options;
}

}  // namespace vesk::generator
