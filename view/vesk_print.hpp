// Messages as text: `stream << message`, vesk::to_string(message), and std::format where the compiler has it. In one
// line, as protobuf's text format: f3: 2 f5: "green". By the toolkit's table of facts, so libvesk_toolkit is linked;
// libvesk_text has the format whole, and reads it.
#ifndef VESK_PRINT_HPP
#define VESK_PRINT_HPP

#include <charconv>
#include <cmath>
#include <ostream>
#include <string>
#include <version>
#include <vesk/vesk.hpp>
#if defined(__cpp_lib_format)
#include <format>
#endif

namespace vesk {
namespace detail {

inline void print_bytes(std::string& text, std::string_view bytes) {
    text += '"';
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (code >= 0x20 && code < 0x7F) {
            text += c;
        } else {
            text += '\\';
            for (const int shift : {6, 3, 0}) text += static_cast<char>('0' + (code >> shift & 7));
        }
    }
    text += '"';
}

template <class Value>
Value load(const void* structure, std::uint32_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const char*>(structure) + offset, sizeof value);
    return value;
}

inline void print_message(std::string& text, const vesk_type* type, const void* structure);

// An identifier belongs to another library, which may describe it or not. Of any further library nothing is known.
inline const vesk_type* describe_elsewhere(const vesk_type* type) {
    const std::string_view name = vesk_type_name(type);
    return name == "drin_eid_st" || name == "vesk_drin_eid_st" ? vesk_type_named("drin_eid_st") : nullptr;
}

inline void print_nested(std::string& text, const vesk_type* type, const void* structure) {
    if ((type->flags & VESK_TYPE_ELSEWHERE) != 0) type = describe_elsewhere(type);
    text += "{";
    if (type == nullptr) {
        text += " opaque";
    } else {
        const std::size_t before = text.size();
        text += ' ';
        print_message(text, type, structure);
        if (text.size() == before + 1) text.pop_back();
    }
    text += text.back() == '{' ? "}" : " }";
}

// A number as text: of a fraction the fewest digits that are read back as the same.
template <class Value>
std::size_t print_number(std::string& text, const void* member) {
    Value value = load<Value>(member, 0);
    if constexpr (std::is_floating_point_v<Value>) {
        if (std::isnan(value)) value = std::fabs(value);  // without a sign
    }
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return sizeof value;
}

// A value of a kind, alone or in an array; the size of its member.
inline std::size_t print_value(std::string& text, unsigned kind, const void* member) {
    switch (kind) {
        case VESK_KIND_BOOL: text += load<std::uint8_t>(member, 0) != 0 ? "true" : "false"; return 1;
        case VESK_KIND_UINT32:
        case VESK_KIND_FIXED32: return print_number<std::uint32_t>(text, member);
        case VESK_KIND_UINT64:
        case VESK_KIND_FIXED64: return print_number<std::uint64_t>(text, member);
        case VESK_KIND_SINT32:
        case VESK_KIND_INT32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_ENUM: return print_number<std::int32_t>(text, member);
        case VESK_KIND_SINT64:
        case VESK_KIND_INT64:
        case VESK_KIND_SFIXED64: return print_number<std::int64_t>(text, member);
        case VESK_KIND_FLOAT: return print_number<float>(text, member);
        case VESK_KIND_DOUBLE: return print_number<double>(text, member);
        case VESK_KIND_STRING: {
            const char* const string = load<const char*>(member, 0);
            print_bytes(text, string != nullptr ? string : "");
            return sizeof string;
        }
        default: {
            const auto bytes = load<vesk_bytes>(member, 0);
            print_bytes(text, {reinterpret_cast<const char*>(bytes.data), static_cast<std::size_t>(bytes.length)});
            return sizeof bytes;
        }
    }
}

inline void print_field(std::string& text, const vesk_field* field, const void* structure) {
    const auto begin = [&](const char* colon) {
        if (!text.empty() && text.back() != ' ') text += ' ';
        text.append(vesk_field_name(field)).append(colon);
    };
    switch (field->kind) {
        case VESK_KIND_STRING:
            if (const char* const string = load<const char*>(structure, field->offset); string != nullptr) {
                begin(": ");
                print_bytes(text, string);
            }
            break;
        case VESK_KIND_BYTES:
            begin(": ");
            print_bytes(text, {load<const char*>(structure, field->offset),
                               static_cast<std::size_t>(load<std::uint64_t>(structure, field->size_offset))});
            break;
        case VESK_KIND_MESSAGE:
            begin(" ");
            print_nested(text, vesk_field_nested(field), static_cast<const char*>(structure) + field->offset);
            break;
        case VESK_KIND_LIST: {
            const char* element = load<const char*>(structure, field->offset);
            const vesk_type* const type = vesk_field_nested(field);
            for (std::uint32_t left = load<std::uint32_t>(structure, field->size_offset); left != 0; --left) {
                begin(" ");
                print_nested(text, type, element);
                element += type->structure_size;
            }
            break;
        }
        default: {
            const unsigned kind = field->kind & ~unsigned{VESK_KIND_REPEATED};
            const char* value = static_cast<const char*>(structure) + field->offset;
            std::uint32_t left = 1;
            if (kind != field->kind) {
                value = load<const char*>(structure, field->offset);
                left = load<std::uint32_t>(structure, field->size_offset);
            }
            for (; left != 0; --left) {
                begin(": ");
                value += print_value(text, kind, value);
            }
        }
    }
}

// The fields that are present.
inline void print_message(std::string& text, const vesk_type* type, const void* structure) {
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        const auto byte = load<std::uint8_t>(structure, type->presence_offset + field->presence_bit / 8);
        if ((byte >> (field->presence_bit % 8) & 1) != 0) print_field(text, field, structure);
    }
}

}  // namespace detail

// The fields that are present, in one line; empty if there are none. Throws std::bad_alloc as std::string does.
template <message_structure T>
std::string to_string(view<T> message) {
    std::string text;
    const vesk_type* const type = detail::functions<T>::describe();
    if (type != nullptr) detail::print_message(text, type, &message.c());
    return text;
}
template <message_structure T>
std::string to_string(const message<T>& message) {
    return to_string(view<T>(message));
}

// The same line.
template <message_structure T>
std::ostream& operator<<(std::ostream& stream, view<T> message) {
    return stream << to_string(message);
}
template <message_structure T>
std::ostream& operator<<(std::ostream& stream, const message<T>& message) {
    return stream << to_string(message);
}

}  // namespace vesk

#if defined(__cpp_lib_format)
template <class T>
struct std::formatter<vesk::view<T>> : std::formatter<std::string> {
    auto format(vesk::view<T> message, std::format_context& context) const {
        return std::formatter<std::string>::format(vesk::to_string(message), context);
    }
};
template <class T>
struct std::formatter<vesk::message<T>> : std::formatter<std::string> {
    auto format(const vesk::message<T>& message, std::format_context& context) const {
        return std::formatter<std::string>::format(vesk::to_string(message), context);
    }
};
#endif

#endif
