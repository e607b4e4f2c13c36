#include "tools/vesk/values.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "toolkit/kinds.hpp"
#include "tools/vesk/input.hpp"

namespace vesk::tool {
namespace {

constexpr std::size_t most_of_a_string = 4096;
constexpr std::size_t most_of_bytes = 32;

// The shortest that is read back as the same.
template <class Real, class Bits>
std::string real_in_words(std::uint64_t number) {
    const Bits bits = static_cast<Bits>(number);
    Real real;
    std::memcpy(&real, &bits, sizeof real);
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, real).ptr};
}

std::string_view bytes_of(const vesk_value& value) {
    return {static_cast<const char*>(value.data), value.data != nullptr ? value.length : 0};
}

// Of two strings or bytes whose beginnings, which are shown, are the same.
std::string where_they_part(const vesk_value& left, const vesk_value& right) {
    const std::string_view one = bytes_of(left);
    const std::string_view other = bytes_of(right);
    const auto [in_one, in_other] = std::ranges::mismatch(one, other);
    const auto same = static_cast<std::size_t>(in_one - one.begin());
    const bool is_seen = same < (left.kind == VESK_KIND_BYTES ? most_of_bytes : most_of_a_string);
    return is_seen ? "" : " (the first " + counted(same, "byte") + " are the same)";
}

}  // namespace

std::string number_in_words(std::uint16_t kind, std::uint64_t number) {
    switch (kind) {
        case VESK_KIND_BOOL: return number != 0 ? "true" : "false";
        case VESK_KIND_FLOAT: return real_in_words<float, std::uint32_t>(number);
        case VESK_KIND_DOUBLE: return real_in_words<double, std::uint64_t>(number);
        default: break;
    }
    return has_sign(kind) ? std::to_string(static_cast<std::int64_t>(number)) : std::to_string(number);
}

std::string bytes_in_words(std::string_view bytes) {
    std::string hex = in_form(bytes.substr(0, most_of_bytes), Form::hex);
    hex.pop_back();
    return counted(bytes.size(), "byte") + (hex.empty() ? "" : ": " + hex) +
           (bytes.size() > most_of_bytes ? "..." : "");
}

std::string value_in_words(const vesk_value& value, bool of_message) {
    const std::string_view bytes = bytes_of(value);
    switch (value.kind) {
        case VESK_KIND_BOOL:
            return of_message ? std::to_string(value.number) : number_in_words(VESK_KIND_BOOL, value.number);
        case VESK_KIND_STRING: return quote(bytes, most_of_a_string);
        case VESK_KIND_BYTES: return bytes_in_words(bytes);
        case VESK_KIND_LIST: return "a list of " + std::to_string(value.count);
        case VESK_KIND_MESSAGE: return of_message ? "a message" : "a message of " + counted(value.length, "byte");
        default: return number_in_words(value.kind, value.number);
    }
}

std::string difference_in_words(const Output& output, const char* path, const vesk_value* left,
                                const vesk_value* right) {
    const auto words = [](const vesk_value* value) {
        return value != nullptr ? value_in_words(*value, true) : "absent";
    };
    const bool has_bytes =
        left != nullptr && right != nullptr && (left->kind == VESK_KIND_STRING || left->kind == VESK_KIND_BYTES);
    return std::string(path) + ": " + output.in(Ink::bad, words(left)) + " | " + output.in(Ink::good, words(right)) +
           (has_bytes ? where_they_part(*left, *right) : "") + "\n";
}

}  // namespace vesk::tool
