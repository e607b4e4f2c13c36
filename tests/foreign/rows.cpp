#include "tests/foreign/rows.hpp"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <map>

namespace vesk::test {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;

// What of an input is left, and whether reading went on to its end so far.
struct Rest {
    const std::uint8_t* at;
    const std::uint8_t* end;

    std::size_t size() const { return static_cast<std::size_t>(end - at); }
};

bool is_utf8(const std::uint8_t* at, const std::uint8_t* end) {
    while (at < end) {
        const std::uint8_t first = *at++;
        if (first < 0x80) continue;
        const int more = first >= 0xF0 && first < 0xF5   ? 3
                         : first >= 0xE0 && first < 0xF0 ? 2
                         : first >= 0xC2 && first < 0xE0 ? 1
                                                         : 0;
        if (more == 0 || end - at < more) return false;
        std::uint32_t code = first & (0x3Fu >> more);
        for (int i = 0; i < more; ++i) {
            if ((*at & 0xC0) != 0x80) return false;
            code = code << 6 | (*at++ & 0x3Fu);
        }
        if ((more == 2 && code < 0x800) || (more == 3 && code < 0x10000) || code > 0x10FFFF) return false;
        if (code >= 0xD800 && code < 0xE000) return false;
    }
    return true;
}

class Reader {
public:
    std::set<std::string> rows;

    // Reads on where the library does. False if it refuses the message at some place.
    bool read_message(const Descriptor& type, Rest rest) {
        std::map<int, int> seen;  // how often each number began
        int previous = -1;
        while (rest.size() != 0) {
            std::uint64_t tag;
            std::size_t tag_size;
            if (!read_varint(&rest, &tag, &tag_size)) return false;
            if (tag_size > 5 || tag >> 32 != 0) rows.insert("tag_of_more_than_32_bits_is_read");
            const int number = static_cast<int>(static_cast<std::uint32_t>(tag) >> 3);
            unsigned wire_type = tag & 7;
            if (number == 0) rows.insert("field_number_0_is_an_unknown_field");
            const FieldDescriptor* const field = type.FindFieldByNumber(number);
            if (field == nullptr) {
                if (!skip(&rest, wire_type)) return false;
                previous = number;
                continue;
            }
            if (!is_taken_as(*field, wire_type)) {
                rows.insert("known_field_of_another_wire_type_is_refused");
                if (number != previous || !field->is_repeated() || wire_type_of(*field) != 2) return false;
                rows.insert("element_of_another_wire_type_is_read_as_an_element");
                wire_type = 2;
            }
            if (number != previous && seen[number]++ != 0) note_again(*field);
            if (number == previous && !field->is_repeated()) note_again(*field);
            previous = number;
            if (!read_field(*field, wire_type, &rest)) return false;
        }
        return true;
    }

private:
    static unsigned wire_type_of(const FieldDescriptor& field) {
        switch (field.type()) {
            case FieldDescriptor::TYPE_FIXED32:
            case FieldDescriptor::TYPE_SFIXED32:
            case FieldDescriptor::TYPE_FLOAT: return 5;
            case FieldDescriptor::TYPE_FIXED64:
            case FieldDescriptor::TYPE_SFIXED64:
            case FieldDescriptor::TYPE_DOUBLE: return 1;
            case FieldDescriptor::TYPE_STRING:
            case FieldDescriptor::TYPE_BYTES:
            case FieldDescriptor::TYPE_MESSAGE: return 2;
            default: return 0;
        }
    }
    static bool is_taken_as(const FieldDescriptor& field, unsigned wire_type) {
        return wire_type == wire_type_of(field) || (wire_type == 2 && field.is_packable());
    }

    void note_again(const FieldDescriptor& field) {
        if (field.is_repeated()) {
            rows.insert("repeated_field_in_two_runs_is_refused");
        } else if (field.type() == FieldDescriptor::TYPE_MESSAGE) {
            rows.insert("nested_message_twice_is_replaced");
        } else if (field.cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
            rows.insert("string_or_bytes_twice_is_refused");
        }
    }

    bool read_varint(Rest* rest, std::uint64_t* value, std::size_t* size) {
        *value = 0;
        for (*size = 0; rest->size() != 0;) {
            const std::uint8_t byte = *rest->at++;
            if (*size < 10) *value |= std::uint64_t{byte & 0x7Fu} << 7 * *size;
            if (++*size > 10) rows.insert("number_of_more_than_10_bytes_is_read");
            if (byte < 0x80) return true;
        }
        return false;
    }
    bool read_varint(Rest* rest, std::uint64_t* value) {
        std::size_t size;
        return read_varint(rest, value, &size);
    }

    bool read_content(Rest* rest, Rest* content) {
        std::uint64_t length;
        std::size_t size;
        if (!read_varint(rest, &length, &size)) return false;
        if (size > 5 || length > INT32_MAX) rows.insert("length_of_more_than_31_bits_is_read");
        length = static_cast<std::uint32_t>(length);
        if (length > rest->size()) return false;
        *content = {rest->at, rest->at + length};
        rest->at += length;
        return true;
    }

    // The message is over where it ends, and protobuf refuses it.
    void end_early(Rest* rest) {
        rows.insert("unknown_field_cut_short_is_accepted");
        rest->at = rest->end;
    }

    bool skip(Rest* rest, unsigned wire_type) {
        std::uint64_t value;
        Rest content;
        switch (wire_type) {
            case 0: return read_varint(rest, &value);
            case 2:
                if (!read_content(rest, &content)) end_early(rest);
                return true;
            case 1:
            case 5:
                if (rest->size() < (wire_type == 1 ? 8u : 4u)) {
                    end_early(rest);
                    return true;
                }
                rest->at += wire_type == 1 ? 8 : 4;
                return true;
            case 3:
            case 4: rows.insert("group_is_refused"); return false;
            default: return false;
        }
    }

    bool read_scalar(const FieldDescriptor& field, Rest* rest) {
        const unsigned wire_type = wire_type_of(field);
        if (wire_type != 0) {
            const std::size_t size = wire_type == 1 ? 8 : 4;
            if (rest->size() < size) return false;
            rest->at += size;
            return true;
        }
        std::uint64_t value;
        if (!read_varint(rest, &value)) return false;
        if (field.type() == FieldDescriptor::TYPE_BOOL && value != 0 && static_cast<std::uint32_t>(value) == 0) {
            rows.insert("bool_is_read_from_32_bits");
        }
        if (field.type() == FieldDescriptor::TYPE_ENUM && field.file()->syntax() == FileDescriptor::SYNTAX_PROTO2 &&
            field.enum_type()->FindValueByNumber(static_cast<int>(value)) == nullptr) {
            rows.insert("value_that_an_enum_does_not_name_is_kept");
        }
        return true;
    }

    bool read_field(const FieldDescriptor& field, unsigned wire_type, Rest* rest) {
        if (wire_type != 2) return read_scalar(field, rest);
        Rest content;
        if (!read_content(rest, &content)) return false;
        switch (field.type()) {
            case FieldDescriptor::TYPE_MESSAGE: return read_message(*field.message_type(), content);
            case FieldDescriptor::TYPE_BYTES: return true;
            case FieldDescriptor::TYPE_STRING:
                if (std::find(content.at, content.end, 0) != content.end) rows.insert("string_ends_at_an_embedded_nul");
                if (field.file()->syntax() == FileDescriptor::SYNTAX_PROTO3 && !is_utf8(content.at, content.end)) {
                    rows.insert("string_that_is_not_utf8_is_accepted");
                }
                return true;
            default:
                while (content.size() != 0) {
                    if (!read_scalar(field, &content)) return false;
                }
                return true;
        }
    }
};

}  // namespace

std::set<std::string> rows_of(const Descriptor& type, const Bytes& input) {
    Reader reader;
    reader.read_message(type, {input.data(), input.data() + input.size()});
    return reader.rows;
}

}  // namespace vesk::test
