#include "toolkit/message.hpp"

namespace vesk {

namespace {

// Of a structure that nobody here can look into: one that is cleared has no content.
bool has_any_byte(const vesk_type* type, const void* structure) {
    const std::uint8_t* const bytes = static_cast<const std::uint8_t*>(structure);
    for (std::uint32_t i = 0; i < type->structure_size; ++i) {
        if (bytes[i] != 0) return true;
    }
    return false;
}

}  // namespace

bool has_content(const vesk_type* type, const void* message) {
    const vesk_type* const described = describe(type);
    if (described == nullptr) {
        return is_identifier(type) ? measure_identifier(message) != 0 : has_any_byte(type, message);
    }
    const std::uint64_t presence = load_presence(described, message);
    const vesk_field* field = vesk_type_field(described, 0);
    for (std::uint32_t left = described->field_count; left != 0; --left) {
        if (is_encoded(presence, field, message)) return true;
        field = next_row(described, field);
    }
    return false;
}

}  // namespace vesk
