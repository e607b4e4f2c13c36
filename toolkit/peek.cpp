// Single fields out of encoded bytes.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/encoded.hpp"
#include "toolkit/options.hpp"
#include "toolkit/types.hpp"

namespace vesk {
namespace {

// ---- Paths ----------------------------------------------------------------------------------------------------------

// A step of a path: a field of a message, and which of its elements if it is a list; no element is the list itself.
struct PathStep {
    const vesk_field* field;
    bool has_element;
    std::uint32_t element;
    const char* rest;  // of the path, after the dot; null if the path cannot be understood
};

const vesk_field* field_named(const vesk_type* type, const char* name, std::size_t length) {
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        const char* const known = vesk_field_name(field);
        if (std::strncmp(known, name, length) == 0 && known[length] == '\0') return field;
    }
    return nullptr;
}

// "[12]": the position after it, or null.
const char* read_index(const char* path, std::uint32_t* index) {
    std::uint64_t value = 0;
    const char* at = path + 1;
    for (; *at >= '0' && *at <= '9' && value <= UINT32_MAX; ++at) {
        value = value * 10 + static_cast<std::uint64_t>(*at - '0');
    }
    *index = static_cast<std::uint32_t>(value);
    return at != path + 1 && value <= UINT32_MAX && *at == ']' ? at + 1 : nullptr;
}

PathStep read_step(const vesk_type* type, const char* path) {
    const std::size_t length = std::strcspn(path, ".[");
    PathStep step{field_named(type, path, length), false, 0, nullptr};
    if (step.field == nullptr) return step;
    const char* at = path + length;
    if (*at == '[') {
        if (step.field->kind != VESK_KIND_LIST) return step;
        at = read_index(at, &step.element);
        if (at == nullptr) return step;
        step.has_element = true;
    }
    if (*at == '\0') step.rest = at;
    // A list as a whole, a string and the like have nothing in them.
    const bool holds_fields = step.field->kind == VESK_KIND_MESSAGE || step.has_element;
    if (*at == '.' && at[1] != '\0' && holds_fields) step.rest = at + 1;
    return step;
}

// VESK_OK if a message of this type can have such a path. `*last` becomes its last field; null if it has none.
std::int32_t check_path(const vesk_type* type, const char* path, const vesk_field** last) {
    *last = nullptr;
    while (*path != '\0') {
        type = describe(type);
        if (type == nullptr) return VESK_OPAQUE;
        const PathStep step = read_step(type, path);
        if (step.rest == nullptr) return VESK_NO_SUCH_PATH;
        *last = step.field;
        path = step.rest;
        type = vesk_field_nested(step.field);
    }
    return VESK_OK;
}

// ---- Encoded bytes --------------------------------------------------------------------------------------------------

// The content of a message. After an error `at` is null.
struct Range {
    const std::uint8_t* at;
    const std::uint8_t* end;
};

// Steps over a field's content, a list as a whole, `at` being the position after the tag.
const std::uint8_t* skip_content(const vesk_field* field, const std::uint8_t* at, const std::uint8_t* end) {
    if (field->kind <= VESK_KIND_BOOL) return skip_varint(at, end);
    while (true) {
        const Varint length = read_length(at, end);
        if (length.at == nullptr) return nullptr;
        at = length.at + length.value;
        if (field->kind != VESK_KIND_LIST) return at;
        const std::uint8_t* const next = next_element(vesk_field_number(field), at, end);
        if (next == nullptr) return at;
        at = next;
    }
}

struct Found {
    std::int32_t code;       // VESK_OK, VESK_ABSENT, or the error of the bytes
    const std::uint8_t* at;  // after the tag
};

// The last occurrence of a field in a message, or the first one.
Found find_field(const vesk_type* type, const vesk_field* wanted, Range range, bool first) {
    Found found{VESK_ABSENT, nullptr};
    const std::uint8_t* at = range.at;
    while (at != range.end) {
        const Varint read = read_tag(at, range.end);
        if (read.at == nullptr) return {VESK_MALFORMED, nullptr};
        const std::uint32_t tag = static_cast<std::uint32_t>(read.value);
        if (tag == wanted->tag) {
            found = {VESK_OK, read.at};
            if (first) break;
        }
        const vesk_field* const field = vesk_type_field_numbered(type, field_number_of_tag(tag));
        if (field == nullptr) {
            const Step step = skip_field(wire_type_of_tag(tag), read.at, range.end);
            if (step.code != VESK_OK) return {step.code, nullptr};
            at = step.at;
            continue;
        }
        if (field->tag != tag) return {VESK_WRONG_WIRE_TYPE, nullptr};
        at = skip_content(field, read.at, range.end);
        if (at == nullptr) return {VESK_MALFORMED, nullptr};
    }
    return found;
}

// ---- Values ---------------------------------------------------------------------------------------------------------

vesk_value make_value(std::uint16_t kind, const vesk_type* type, Range content) {
    vesk_value value;
    std::memset(&value, 0, sizeof value);
    value.kind = kind;
    value.type = type;
    value.data = content.at;
    value.length = static_cast<std::uint64_t>(content.end - content.at);
    return value;
}

// The content of a string, bytes field, nested message or element, `at` being the position of its length.
Range content_at(const std::uint8_t* at, const std::uint8_t* end) {
    const Varint length = read_length(at, end);
    return {length.at, length.at != nullptr ? length.at + length.value : nullptr};
}

std::uint32_t count_elements(std::uint32_t number, const std::uint8_t* at, const std::uint8_t* end) {
    std::uint32_t count = 0;
    for (; at != nullptr; ++count) {
        const Range content = content_at(at, end);
        if (content.at == nullptr) break;
        at = next_element(number, content.end, end);
    }
    return count;
}

std::uint64_t read_scalar(std::uint16_t kind, const std::uint8_t* at, const std::uint8_t* end) {
    std::uint64_t value = 0;
    read_long_varint64(at, end, &value);
    if (kind == VESK_KIND_BOOL) return static_cast<std::uint32_t>(value) != 0;
    return kind == VESK_KIND_UINT32 ? static_cast<std::uint32_t>(value) : value;
}

// The field at `at`, the position after its tag, as a whole.
bool read_value(const vesk_field* field, const std::uint8_t* at, const std::uint8_t* end, vesk_value* value) {
    const vesk_type* const nested = vesk_field_nested(field);
    if (field->kind <= VESK_KIND_BOOL) {
        const std::uint8_t* const after = skip_varint(at, end);
        if (after == nullptr) return false;
        *value = make_value(field->kind, nullptr, {at, after});
        value->number = read_scalar(field->kind, at, end);
        value->data = nullptr;
        value->length = 0;
        return true;
    }
    if (field->kind == VESK_KIND_LIST) {
        const std::uint8_t* const after = skip_content(field, at, end);
        if (after == nullptr) return false;
        *value = make_value(VESK_KIND_LIST, describe(nested), {at, after});
        value->count = count_elements(vesk_field_number(field), at, end);
        return true;
    }
    const Range content = content_at(at, end);
    if (content.at == nullptr) return false;
    *value = make_value(field->kind, nested != nullptr ? describe(nested) : nullptr, content);
    return true;
}

// The content of an element, `at` being the position after the tag of the first.
std::int32_t find_element(std::uint32_t number, std::uint32_t element, const std::uint8_t* at, const std::uint8_t* end,
                          Range* content) {
    for (std::uint32_t index = 0; at != nullptr; ++index) {
        *content = content_at(at, end);
        if (content->at == nullptr) return VESK_MALFORMED;
        if (index == element) return VESK_OK;
        at = next_element(number, content->end, end);
    }
    return VESK_PAST_THE_END;
}

// Follows a path that check_path has understood.
std::int32_t follow(const vesk_type* type, const char* path, Range range, bool first, vesk_value* value) {
    *value = make_value(VESK_KIND_MESSAGE, describe(type), range);
    while (*path != '\0') {
        type = describe(type);
        const PathStep step = read_step(type, path);
        const Found found = find_field(type, step.field, range, first);
        if (found.code != VESK_OK) return found.code;
        if (step.has_element) {
            const std::int32_t code =
                find_element(vesk_field_number(step.field), step.element, found.at, range.end, &range);
            if (code != VESK_OK) return code;
            *value = make_value(VESK_KIND_MESSAGE, describe(vesk_field_nested(step.field)), range);
        } else {
            if (!read_value(step.field, found.at, range.end, value)) return VESK_MALFORMED;
            range = content_at(found.at, range.end);
        }
        path = step.rest;
        type = vesk_field_nested(step.field);
    }
    return VESK_OK;
}

// The path, then the input as a whole unless the first occurrence is wanted, then the value.
std::int32_t peek(const vesk_type* type, const char* path, const void* input, std::uint64_t length, vesk_value* value,
                  const vesk_options* given, const vesk_field** last) {
    vesk_options own_options;
    const vesk_options& options = read_options(given, &own_options);
    std::int32_t code = check_path(type, path, last);
    if (code != VESK_OK) return code;
    const bool first = (options.flags & VESK_FIRST_OCCURRENCE) != 0;
    if (!first) {
        code = vesk_check(type, input, length, 0, nullptr, given);
        if (code != VESK_OK) return code;
    }
    const std::uint8_t* const at = static_cast<const std::uint8_t*>(input);
    return follow(type, path, {at, end_of_input(at, length)}, first, value);
}

}  // namespace
}  // namespace vesk

int32_t vesk_peek(const vesk_type* type, const char* path, const void* input, uint64_t length, vesk_value* value,
                  const vesk_options* options) {
    const vesk_field* last;
    vesk_value found;
    const std::int32_t code = vesk::peek(type, path, input, length, &found, options, &last);
    if (code == VESK_OK) vesk::write_common(value, found);
    return code;
}

int32_t vesk_iterate(vesk_iterator* iterator, const vesk_type* type, const char* path, const void* input,
                     uint64_t length, const vesk_options* options) {
    *iterator = {};
    iterator->size = sizeof *iterator;
    const vesk_field* last;
    vesk_value list;
    const std::int32_t code = vesk::peek(type, path, input, length, &list, options, &last);
    if (code != VESK_OK) return code;
    if (list.kind != VESK_KIND_LIST) return VESK_NO_SUCH_PATH;
    iterator->type = list.type;
    iterator->next = static_cast<const unsigned char*>(list.data);
    iterator->end = iterator->next + list.length;
    iterator->number = vesk_field_number(last);
    return VESK_OK;
}

int vesk_next(vesk_iterator* iterator, vesk_value* element) {
    if (iterator->next == nullptr) return 0;
    const vesk::Range content = vesk::content_at(iterator->next, iterator->end);
    if (content.at == nullptr) return 0;  // of an input that has changed meanwhile
    iterator->next = vesk::next_element(iterator->number, content.end, iterator->end);
    vesk_value value = vesk::make_value(VESK_KIND_MESSAGE, iterator->type, content);
    vesk::write_common(element, value);
    return 1;
}
