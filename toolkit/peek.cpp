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

// A step of a path: a field of a message, and which of its elements if it is a list or repeated; no element is the
// whole.
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
        if (!has_count(step.field)) return step;
        at = read_index(at, &step.element);
        if (at == nullptr) return step;
        step.has_element = true;
    }
    if (*at == '\0') step.rest = at;
    // A list as a whole, a string and the like have nothing in them.
    const bool holds_fields =
        step.field->kind == VESK_KIND_MESSAGE || (step.field->kind == VESK_KIND_LIST && step.has_element);
    if (*at == '.' && at[1] != '\0' && holds_fields) step.rest = at + 1;
    return step;
}

// VESK_OK if a message of this type can have such a path. `*last` becomes its last step, without a field if it has
// none.
std::int32_t check_path(const vesk_type* type, const char* path, PathStep* last) {
    *last = {};
    while (*path != '\0') {
        type = describe(type);
        if (type == nullptr) return VESK_OPAQUE;
        const PathStep step = read_step(type, path);
        if (step.rest == nullptr) return VESK_NO_SUCH_PATH;
        *last = step;
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

// Steps over a field's content, a list or repeated field as a whole: `tag` is the position of its first tag, `at` that
// after it. The code is an error of the bytes.
Step skip_content(const vesk_field* field, const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    const Step malformed{nullptr, VESK_MALFORMED};
    const std::uint16_t kind = kind_of_values(field);
    if (is_scalar_kind(kind)) {
        if (!is_repeated_field(field)) {
            at = skip_number(kind, at, end);
            return at != nullptr ? Step{at, VESK_OK} : malformed;
        }
        const CountedRun run = count_run(field, tag, end);
        return {run.code == VESK_OK ? run.at : nullptr, run.code};
    }
    while (true) {
        const Varint length = read_length(at, end);
        if (length.at == nullptr) return malformed;
        at = length.at + length.value;
        if (!has_count(field)) return {at, VESK_OK};
        const std::uint8_t* const next = next_element(vesk_field_number(field), at, end);
        if (next == nullptr) return {at, VESK_OK};
        at = next;
    }
}

struct Found {
    std::int32_t code;  // VESK_OK, VESK_ABSENT, or the error of the bytes
    const std::uint8_t* tag;
    const std::uint8_t* at;  // after the tag
};

// The last occurrence of a field in a message, or the first one.
Found find_field(const vesk_type* type, const vesk_field* wanted, Range range, bool first) {
    Found found{VESK_ABSENT, nullptr, nullptr};
    const std::uint8_t* at = range.at;
    while (at != range.end) {
        const Varint read = read_tag(at, range.end);
        if (read.at == nullptr) return {VESK_MALFORMED, nullptr, nullptr};
        const std::uint32_t tag = static_cast<std::uint32_t>(read.value);
        if (tag == wanted->tag || (field_number_of_tag(tag) == vesk_field_number(wanted) && takes_tag(wanted, tag))) {
            found = {VESK_OK, at, read.at};
            if (first) break;
        }
        const vesk_field* const field = vesk_type_field_numbered(type, field_number_of_tag(tag));
        if (field == nullptr) {
            const Step step = skip_field(wire_type_of_tag(tag), read.at, range.end);
            if (step.code != VESK_OK) return {step.code, nullptr, nullptr};
            at = step.at;
            continue;
        }
        if (!takes_tag(field, tag)) return {VESK_WRONG_WIRE_TYPE, nullptr, nullptr};
        const Step step = skip_content(field, at, read.at, range.end);
        if (step.code != VESK_OK) return {step.code, nullptr, nullptr};
        at = step.at;
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

vesk_value make_number(std::uint16_t kind, std::uint64_t number) {
    vesk_value value = make_value(kind, nullptr, {nullptr, nullptr});
    value.number = number;
    return value;
}

// Of a list, or of a repeated string or bytes field.
vesk_value make_element(const vesk_field* field, Range content) {
    const vesk_type* const nested = vesk_field_nested(field);
    if (nested != nullptr) return make_value(VESK_KIND_MESSAGE, describe(nested), content);
    return make_value(kind_of_values(field), nullptr, content);
}

// What was found of a field as a whole. VESK_OK, or an error of the bytes.
std::int32_t read_value(const vesk_field* field, const Found& found, const std::uint8_t* end, vesk_value* value) {
    const vesk_type* const nested = vesk_field_nested(field);
    if (has_count(field)) {
        const Step after = skip_content(field, found.tag, found.at, end);
        if (after.code != VESK_OK) return after.code;
        const bool of_scalars = is_repeated_scalar(field);
        *value = make_value(field->kind, nested != nullptr ? describe(nested) : nullptr,
                            {of_scalars ? found.tag : found.at, after.at});
        value->count = of_scalars ? static_cast<std::uint32_t>(count_run(field, found.tag, end).count)
                                  : count_elements(vesk_field_number(field), found.at, end);
        return VESK_OK;
    }
    if (is_scalar_kind(field->kind)) {
        std::uint64_t number;
        if (read_number(field->kind, found.at, end, &number) == nullptr) return VESK_MALFORMED;
        *value = make_number(field->kind, number);
        return VESK_OK;
    }
    const Range content = content_at(found.at, end);
    if (content.at == nullptr) return VESK_MALFORMED;
    *value = make_value(field->kind, nested != nullptr ? describe(nested) : nullptr, content);
    return VESK_OK;
}

// One of a run of scalars.
std::int32_t read_scalar_element(const vesk_field* field, std::uint32_t element, const std::uint8_t* tag,
                                 const std::uint8_t* end, vesk_value* value) {
    const CountedRun counted = count_run(field, tag, end);
    if (counted.code != VESK_OK) return counted.code;
    if (element >= counted.count) return VESK_PAST_THE_END;
    ScalarRun run(field, tag, end);
    std::uint64_t number = 0;
    for (std::uint64_t i = 0; i <= element; ++i) {
        if (!run.next(&number)) return VESK_MALFORMED;
    }
    *value = make_number(kind_of_values(field), number);
    return VESK_OK;
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
        if (step.field == nullptr) __builtin_unreachable();
        const Found found = find_field(type, step.field, range, first);
        if (found.code != VESK_OK) return found.code;
        std::int32_t code;
        if (step.has_element && is_repeated_scalar(step.field)) {
            code = read_scalar_element(step.field, step.element, found.tag, range.end, value);
        } else if (step.has_element) {
            code = find_element(vesk_field_number(step.field), step.element, found.at, range.end, &range);
            if (code == VESK_OK) *value = make_element(step.field, range);
        } else {
            code = read_value(step.field, found, range.end, value);
            if (step.field->kind == VESK_KIND_MESSAGE) range = content_at(found.at, range.end);
        }
        if (code != VESK_OK) return code;
        path = step.rest;
        type = vesk_field_nested(step.field);
    }
    return VESK_OK;
}

// What a path that check_path has understood leads to: first the input as a whole, unless the first occurrence is
// wanted.
std::int32_t look_up(const vesk_type* type, const char* path, const void* input, std::uint64_t length,
                     const vesk_options* given, vesk_value* value) {
    vesk_options own_options;
    const bool first = (read_options(given, &own_options).flags & VESK_FIRST_OCCURRENCE) != 0;
    if (!first) {
        const std::int32_t code = vesk_check(type, input, length, 0, nullptr, given);
        if (code != VESK_OK) return code;
    }
    const std::uint8_t* const at = static_cast<const std::uint8_t*>(input);
    return follow(type, path, {at, end_of_input(at, length)}, first, value);
}

}  // namespace
}  // namespace vesk

int32_t vesk_peek(const vesk_type* type, const char* path, const void* input, uint64_t length, vesk_value* value,
                  const vesk_options* options) {
    vesk::PathStep last;
    vesk_value found;
    std::int32_t code = vesk::check_path(type, path, &last);
    if (code == VESK_OK) code = vesk::look_up(type, path, input, length, options, &found);
    if (code == VESK_OK) vesk::write_common(value, found);
    return code;
}

int32_t vesk_iterate(vesk_iterator* iterator, const vesk_type* type, const char* path, const void* input,
                     uint64_t length, const vesk_options* options) {
    *iterator = {};
    iterator->size = sizeof *iterator;
    vesk::PathStep last;
    vesk_value list;
    std::int32_t code = vesk::check_path(type, path, &last);
    if (code != VESK_OK) return code;
    if (last.field == nullptr || last.has_element || !vesk::has_count(last.field)) return VESK_NO_SUCH_PATH;
    code = vesk::look_up(type, path, input, length, options, &list);
    if (code != VESK_OK) return code;
    iterator->field = last.field;
    iterator->next = static_cast<const unsigned char*>(list.data);
    iterator->end = iterator->next + list.length;
    return VESK_OK;
}

int vesk_next(vesk_iterator* iterator, vesk_value* element) {
    if (iterator->next == nullptr) return 0;
    const vesk_field* const field = iterator->field;
    if (vesk::is_repeated_scalar(field)) {
        vesk::ScalarRun run(field, iterator->next, iterator->end, iterator->packed_left);
        std::uint64_t number;
        if (!run.next(&number)) return 0;
        iterator->next = run.at();
        iterator->packed_left = run.packed_left();
        vesk::write_common(element, vesk::make_number(vesk::kind_of_values(field), number));
        return 1;
    }
    const vesk::Range content = vesk::content_at(iterator->next, iterator->end);
    if (content.at == nullptr) return 0;  // of an input that has changed meanwhile
    iterator->next = vesk::next_element(vesk_field_number(field), content.end, iterator->end);
    vesk::write_common(element, vesk::make_element(field, content));
    return 1;
}
