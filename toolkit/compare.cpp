// Two messages compared by what they would encode.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "toolkit/message.hpp"
#include "toolkit/options.hpp"
#include "toolkit/path.hpp"

namespace vesk {
namespace {

// What stays the same while two messages and all that is in them are compared, and what has been found.
struct Comparison {
    const vesk_options& options;
    vesk_on_difference on_difference;
    void* context;
    std::uint64_t differences = 0;
    bool opaque = false;
};

// Functions that compare return false if the caller asked to stop.

bool report(Comparison& comparison, const Place* place, const vesk_value* left, const vesk_value* right) {
    ++comparison.differences;
    if (comparison.on_difference == nullptr) return true;
    char path[VESK_PATH_SIZE];
    print_path(place, path);
    return comparison.on_difference(path, left, right, comparison.context) == 0;
}

vesk_value structure_value(const vesk_type* type, const void* structure) {
    vesk_value value{};
    value.size = sizeof value;
    value.kind = VESK_KIND_MESSAGE;
    value.type = describe(type) != nullptr ? describe(type) : type;
    value.data = structure;
    value.length = type->structure_size;
    return value;
}

vesk_value empty_value(std::uint16_t kind) {
    vesk_value value{};
    value.size = sizeof value;
    value.kind = kind;
    return value;
}

vesk_value string_value(const char* string) {
    vesk_value value = empty_value(VESK_KIND_STRING);
    value.data = string;
    value.length = std::strlen(string);
    return value;
}

vesk_value data_value(Data data) {
    vesk_value value = empty_value(VESK_KIND_BYTES);
    value.data = data.at;
    value.length = data.length;
    return value;
}

vesk_value number_value(std::uint16_t kind, std::uint64_t number) {
    vesk_value value = empty_value(kind);
    value.number = number;
    return value;
}

// Of a field that is encoded, and no list or repeated field.
vesk_value field_value(const vesk_field* field, const void* message) {
    if (field->kind == VESK_KIND_MESSAGE) {
        return structure_value(vesk_field_nested(field), member_at(message, field->offset));
    }
    if (field->kind == VESK_KIND_STRING) return string_value(load_string(field, message));
    if (field->kind == VESK_KIND_BYTES) return data_value(load_data(field, message));
    return number_value(field->kind, load_scalar(field, message));
}

bool is_same(Data one, Data other) {
    return one.length == other.length &&
           (one.length == 0 || std::memcmp(one.at, other.at, static_cast<std::size_t>(one.length)) == 0);
}

// Of a field that both messages encode, and no list, repeated field or nested message.
bool is_same_value(const vesk_field* field, const void* left, const void* right) {
    if (field->kind == VESK_KIND_STRING) return std::strcmp(load_string(field, left), load_string(field, right)) == 0;
    if (field->kind != VESK_KIND_BYTES) return load_scalar(field, left) == load_scalar(field, right);
    return is_same(load_data(field, left), load_data(field, right));
}

// ---- Identifiers that nobody describes -----------------------------------------------------------------------------

// By their encodings, of which two must fit into the memory at hand.
bool compare_encodings(Comparison& comparison, const vesk_type* type, const Place* place, const void* left,
                       const void* right) {
    if (!is_identifier(type)) {
        comparison.opaque = true;
        return true;
    }
    std::uint8_t small[512];
    const std::uint64_t size = measure_identifier(left);
    bool same = size == measure_identifier(right);
    if (same && size != 0) {
        const bool is_small = size <= sizeof small / 2;
        if (!is_small && size > comparison.options.scratch_size / 2) {
            comparison.opaque = true;
            return true;
        }
        std::uint8_t* const memory = is_small ? small : static_cast<std::uint8_t*>(comparison.options.scratch);
        const std::size_t length = static_cast<std::size_t>(size);
        std::memset(memory, 0, 2 * length);  // an identifier may write less than it measures
        put_identifier(left, memory, size);
        put_identifier(right, memory + length, size);
        same = std::memcmp(memory, memory + length, length) == 0;
    }
    if (same) return true;
    const vesk_value left_value = structure_value(type, left);
    const vesk_value right_value = structure_value(type, right);
    return report(comparison, place, &left_value, &right_value);
}

// ---- The walk over both --------------------------------------------------------------------------------------------

bool compare_fields(Comparison& comparison, const vesk_type* type, const Place* outer, const void* left_message,
                    const void* right_message);

bool compare_messages(Comparison& comparison, const vesk_type* type, const Place* place, const void* left,
                      const void* right) {
    const vesk_type* const described = describe(type);
    if (described == nullptr) return compare_encodings(comparison, type, place, left, right);
    return compare_fields(comparison, described, place, left, right);
}

// One of the two messages.
struct Side {
    const void* message;
    std::uint64_t presence;
};

// The elements of a list that is encoded; there are none of one that is not.
List list_encoded(const Side& side, const vesk_field* field) {
    List list = load_list(field, side.message);
    if (!is_written(side.presence, field, side.message)) list.count = 0;
    return list;
}

bool compare_element(Comparison& comparison, const Place& place, const List& left, const List& right) {
    const std::uint32_t index = place.element;
    if (index < left.count && index < right.count) {
        return compare_messages(comparison, left.type, &place, element_at(left, index), element_at(right, index));
    }
    const bool is_left = index < left.count;
    const vesk_value value = structure_value(left.type, element_at(is_left ? left : right, index));
    return report(comparison, &place, is_left ? &value : nullptr, is_left ? nullptr : &value);
}

bool compare_lists(Comparison& comparison, const vesk_field* field, const Place* outer, const List& left,
                   const List& right) {
    const std::uint32_t count = left.count > right.count ? left.count : right.count;
    Place place{outer, field, 0};
    for (; place.element < count; ++place.element) {
        if (!compare_element(comparison, place, left, right)) return false;
    }
    return true;
}

Repeated repeated_encoded(const Side& side, const vesk_field* field) {
    Repeated repeated = load_repeated(field, side.message);
    if (!is_written(side.presence, field, side.message)) repeated.count = 0;
    return repeated;
}

vesk_value element_value(const Repeated& repeated, std::uint32_t index) {
    if (repeated.kind == VESK_KIND_STRING) return string_value(string_at(repeated, index));
    if (repeated.kind == VESK_KIND_BYTES) return data_value(data_at(repeated, index));
    return number_value(repeated.kind, load_number(repeated.kind, element_at(repeated, index)));
}

bool is_same_element(const vesk_value& left, const vesk_value& right) {
    const Data one{static_cast<const std::uint8_t*>(left.data), left.length};
    const Data other{static_cast<const std::uint8_t*>(right.data), right.length};
    return left.number == right.number && is_same(one, other);
}

bool compare_repeated(Comparison& comparison, const vesk_field* field, const Place* outer, const Repeated& left,
                      const Repeated& right) {
    const std::uint32_t count = left.count > right.count ? left.count : right.count;
    Place place{outer, field, 0};
    for (; place.element < count; ++place.element) {
        const bool in_left = place.element < left.count;
        const bool in_right = place.element < right.count;
        vesk_value values[2];
        if (in_left) values[0] = element_value(left, place.element);
        if (in_right) values[1] = element_value(right, place.element);
        if (in_left && in_right && is_same_element(values[0], values[1])) continue;
        if (!report(comparison, &place, in_left ? &values[0] : nullptr, in_right ? &values[1] : nullptr)) return false;
    }
    return true;
}

bool compare_field(Comparison& comparison, const vesk_field* field, const Place* outer, const Side& left,
                   const Side& right) {
    if (field->kind == VESK_KIND_LIST) {
        return compare_lists(comparison, field, outer, list_encoded(left, field), list_encoded(right, field));
    }
    if (is_repeated_field(field)) {
        return compare_repeated(comparison, field, outer, repeated_encoded(left, field),
                                repeated_encoded(right, field));
    }
    const Place place{outer, field, no_element};
    const bool in_left = is_encoded(left.presence, field, left.message);
    const bool in_right = is_encoded(right.presence, field, right.message);
    if (in_left && in_right && field->kind == VESK_KIND_MESSAGE) {
        return compare_messages(comparison, vesk_field_nested(field), &place, member_at(left.message, field->offset),
                                member_at(right.message, field->offset));
    }
    if (in_left == in_right && (!in_left || is_same_value(field, left.message, right.message))) return true;
    vesk_value values[2];
    if (in_left) values[0] = field_value(field, left.message);
    if (in_right) values[1] = field_value(field, right.message);
    return report(comparison, &place, in_left ? &values[0] : nullptr, in_right ? &values[1] : nullptr);
}

bool compare_fields(Comparison& comparison, const vesk_type* type, const Place* outer, const void* left_message,
                    const void* right_message) {
    const Side left{left_message, load_presence(type, left_message)};
    const Side right{right_message, load_presence(type, right_message)};
    const vesk_field* field = vesk_type_field(type, 0);
    for (std::uint32_t fields = type->field_count; fields != 0; --fields) {
        if (!compare_field(comparison, field, outer, left, right)) return false;
        field = next_row(type, field);
    }
    return true;
}

int32_t stop_at_once(const char*, const vesk_value*, const vesk_value*, void*) { return 1; }

}  // namespace
}  // namespace vesk

int32_t vesk_diff(const vesk_type* type, const void* left, const void* right, vesk_on_difference on_difference,
                  void* context, uint64_t* differences, const vesk_options* given) {
    vesk_options own;
    const vesk_options& options = vesk::read_options(given, &own);
    vesk::Comparison comparison{options, on_difference, context};
    const bool to_the_end = vesk::compare_messages(comparison, type, nullptr, left, right);
    if (differences != nullptr) *differences = comparison.differences;
    if (!to_the_end) return VESK_STOPPED;
    return comparison.opaque ? std::int32_t{VESK_OPAQUE} : std::int32_t{VESK_OK};
}

int32_t vesk_equal(const vesk_type* type, const void* left, const void* right, const vesk_options* options) {
    const std::int32_t code = vesk_diff(type, left, right, vesk::stop_at_once, nullptr, nullptr, options);
    if (code == VESK_STOPPED) return 0;
    return code == VESK_OK ? 1 : code;
}
