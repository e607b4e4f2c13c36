#include "tools/vesk/values.hpp"

#include "tools/vesk/input.hpp"

namespace vesk::tool {
namespace {

constexpr std::size_t most_of_a_string = 4096;
constexpr std::size_t most_of_bytes = 32;

}  // namespace

std::string bytes_in_words(std::string_view bytes) {
    std::string hex = in_form(bytes.substr(0, most_of_bytes), Form::hex);
    hex.pop_back();
    return counted(bytes.size(), "byte") + (hex.empty() ? "" : ": " + hex) +
           (bytes.size() > most_of_bytes ? "..." : "");
}

std::string value_in_words(const vesk_value& value, bool of_message) {
    const std::string_view bytes(static_cast<const char*>(value.data), value.data != nullptr ? value.length : 0);
    switch (value.kind) {
        case VESK_KIND_UINT32:
        case VESK_KIND_UINT64: return std::to_string(value.number);
        case VESK_KIND_BOOL: return of_message ? std::to_string(value.number) : value.number != 0 ? "true" : "false";
        case VESK_KIND_STRING: return quote(bytes, most_of_a_string);
        case VESK_KIND_BYTES: return bytes_in_words(bytes);
        case VESK_KIND_LIST: return "a list of " + std::to_string(value.count);
        default: return of_message ? "a message" : "a message of " + counted(value.length, "byte");
    }
}

std::string difference_in_words(const Output& output, const char* path, const vesk_value* left,
                                const vesk_value* right) {
    const auto words = [](const vesk_value* value) {
        return value != nullptr ? value_in_words(*value, true) : "absent";
    };
    return std::string(path) + ": " + output.in(Ink::bad, words(left)) + " | " + output.in(Ink::good, words(right)) +
           "\n";
}

}  // namespace vesk::tool
