#include "toolkit/message.hpp"

namespace vesk {

bool has_content(const vesk_type* type, const void* message) {
    const vesk_type* const described = describe(type);
    if (described == nullptr) return measure_identifier(message) != 0;
    const std::uint64_t presence = load_presence(described, message);
    const vesk_field* field = vesk_type_field(described, 0);
    for (std::uint32_t left = described->field_count; left != 0; --left) {
        if (is_encoded(presence, field, message)) return true;
        field = next_row(described, field);
    }
    return false;
}

}  // namespace vesk
