// What was probably not meant in a message that is about to be encoded.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/message.hpp"
#include "toolkit/path.hpp"
#include "toolkit/utf8.hpp"

namespace vesk {
namespace {

// What stays the same while a message and all that is in it are looked at, and what has been found.
struct Lint {
    vesk_on_finding on_finding;
    void* context;
    std::uint64_t findings = 0;
    bool stopped = false;
};

bool is_remark(std::int32_t finding) { return finding == VESK_LINT_NOT_UTF8 || finding == VESK_LINT_OPAQUE; }

void report(Lint& lint, std::int32_t finding, const Place* place) {
    if (lint.stopped) return;
    if (!is_remark(finding)) ++lint.findings;
    if (lint.on_finding == nullptr) return;
    char path[VESK_PATH_SIZE];
    print_path(place, path);
    lint.stopped = lint.on_finding(finding, path, lint.context) != 0;
}

// ---- Fields --------------------------------------------------------------------------------------------------------

// Each returns the bytes that the encoding takes. What is too long is said once, where it is, and counts as nothing for
// the messages around it.

std::uint64_t measure_content(Lint& lint, std::uint32_t tag, std::uint64_t length, const Place& place) {
    if (length > longest_content) {
        report(lint, VESK_LINT_TOO_LONG, &place);
        length = 0;
    }
    return measure_varint(tag) + measure_length(length) + length;
}

std::uint64_t lint_message(Lint& lint, const vesk_type* type, const void* message, const Place* place);

std::uint64_t lint_nested(Lint& lint, const Place& place, const vesk_type* type, const void* nested,
                          bool even_if_empty) {
    const std::uint64_t length = lint_message(lint, type, nested, &place);
    return length != 0 || even_if_empty ? measure_content(lint, place.field->tag, length, place) : 0;
}

std::uint64_t lint_string(Lint& lint, const Place& place, bool marked, const char* characters) {
    if (!marked) {
        if (characters != nullptr) report(lint, VESK_LINT_NOT_MARKED, &place);
        return 0;
    }
    if (characters == nullptr) {
        report(lint, VESK_LINT_NULL_STRING, &place);
        return 0;
    }
    const std::size_t length = std::strlen(characters);
    const std::uint8_t* const begin = reinterpret_cast<const std::uint8_t*>(characters);
    if (find_not_utf8(begin, begin + length) != begin + length) report(lint, VESK_LINT_NOT_UTF8, &place);
    return measure_content(lint, place.field->tag, length, place);
}

std::uint64_t lint_bytes(Lint& lint, const Place& place, bool marked, Data data) {
    if (!marked && data.length != 0) report(lint, VESK_LINT_NOT_MARKED, &place);
    if (data.at == nullptr && data.length != 0) report(lint, VESK_LINT_NULL_DATA, &place);
    return marked ? measure_content(lint, place.field->tag, data.length, place) : 0;
}

// Whether a list or repeated field has elements that are encoded, and can be looked at.
bool has_elements(Lint& lint, const Place& place, bool marked, const void* array, std::uint32_t count) {
    if (!marked && count != 0) report(lint, VESK_LINT_NOT_MARKED, &place);
    if (marked && count == 0) report(lint, VESK_LINT_EMPTY_LIST, &place);
    if (array == nullptr && count != 0) report(lint, VESK_LINT_NULL_DATA, &place);
    return marked && array != nullptr && count != 0;
}

std::uint64_t lint_list(Lint& lint, Place& place, bool marked, const List& list) {
    if (!has_elements(lint, place, marked, list.array, list.count)) return 0;
    std::uint64_t size = 0;
    for (place.element = 0; place.element < list.count && !lint.stopped; ++place.element) {
        size += lint_nested(lint, place, list.type, element_at(list, place.element), true);
    }
    return size;
}

std::uint64_t lint_scalar(Lint& lint, const Place& place, bool marked, std::uint64_t value) {
    if (!marked && value != 0) report(lint, VESK_LINT_NOT_MARKED, &place);
    return marked ? measure_varint(place.field->tag) + measure_varint(value) : 0;
}

// ---- Kinds that messages of others have ----

std::uint64_t measure_number(std::uint16_t kind, std::uint64_t number) {
    const std::uint32_t size = fixed_size(kind);
    return size != 0 ? size : measure_varint(wire_of_number(kind, number));
}

std::uint64_t lint_other_scalar(Lint& lint, const Place& place, bool marked, std::uint64_t number) {
    if (!marked && number != 0) report(lint, VESK_LINT_NOT_MARKED, &place);
    return marked ? measure_varint(place.field->tag) + measure_number(place.field->kind, number) : 0;
}

// A null string among the elements is encoded as an empty one, and so it is probably meant.
std::uint64_t lint_element(Lint& lint, const Place& place, const Repeated& repeated) {
    switch (repeated.kind) {
        case VESK_KIND_STRING: return lint_string(lint, place, true, string_at(repeated, place.element));
        case VESK_KIND_BYTES: return lint_bytes(lint, place, true, data_at(repeated, place.element));
        default: return measure_number(repeated.kind, load_number(repeated.kind, element_at(repeated, place.element)));
    }
}

std::uint64_t lint_repeated(Lint& lint, Place& place, bool marked, const Repeated& repeated) {
    if (!has_elements(lint, place, marked, repeated.array, repeated.count)) return 0;
    std::uint64_t size = 0;
    for (place.element = 0; place.element < repeated.count && !lint.stopped; ++place.element) {
        size += lint_element(lint, place, repeated);
    }
    place.element = no_element;
    if (is_packed_field(place.field)) return measure_content(lint, place.field->tag, size, place);
    return is_scalar_kind(repeated.kind) ? size + repeated.count * measure_varint(place.field->tag) : size;
}

std::uint64_t lint_other(Lint& lint, Place& place, bool marked, const void* message) {
    if (is_repeated_field(place.field)) return lint_repeated(lint, place, marked, load_repeated(place.field, message));
    return lint_other_scalar(lint, place, marked, load_scalar(place.field, message));
}

std::uint64_t lint_field(Lint& lint, const vesk_field* field, bool marked, const void* message, const Place* outer) {
    Place place{outer, field, no_element};
    switch (field->kind) {
        case VESK_KIND_STRING: return lint_string(lint, place, marked, load_string(field, message));
        case VESK_KIND_BYTES: return lint_bytes(lint, place, marked, load_data(field, message));
        case VESK_KIND_LIST: return lint_list(lint, place, marked, load_list(field, message));
        case VESK_KIND_MESSAGE:
            return lint_nested(lint, place, vesk_field_nested(field), member_at(message, field->offset), marked);
        case VESK_KIND_UINT32:
        case VESK_KIND_UINT64:
        case VESK_KIND_BOOL: return lint_scalar(lint, place, marked, load_scalar(field, message));
        default: return lint_other(lint, place, marked, message);
    }
}

std::uint64_t lint_message(Lint& lint, const vesk_type* type, const void* message, const Place* place) {
    const vesk_type* const described = describe(type);
    if (described == nullptr) {
        report(lint, VESK_LINT_OPAQUE, place);
        return 0;
    }
    const std::uint64_t presence = load_presence(described, message);
    const vesk_field* field = vesk_type_field(described, 0);
    std::uint64_t size = 0;
    for (std::uint32_t left = described->field_count; left != 0 && !lint.stopped; --left) {
        size += lint_field(lint, field, is_marked(presence, field), message, place);
        field = next_row(described, field);
    }
    return size;
}

}  // namespace
}  // namespace vesk

uint64_t vesk_lint(const vesk_type* type, const void* message, vesk_on_finding on_finding, void* context,
                   const vesk_options*) {
    vesk::Lint lint{on_finding, context};
    vesk::lint_message(lint, type, message, nullptr);
    return lint.findings;
}
