// Pre-flight: what decode would do with an input, without its memory. The order of the checks is decode's, since the
// first that fails decides the code.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/arena.hpp"
#include "toolkit/identifier.hpp"
#include "toolkit/options.hpp"
#include "toolkit/path.hpp"
#include "toolkit/types.hpp"

namespace vesk {
namespace {

// What stays the same while a message and all that is in it are checked, and what has been found.
struct Check {
    const vesk_options& options;
    const vesk_type* identifier;  // its description; null if there is none
    std::uint32_t flags;
    char* path;  // of the error; VESK_PATH_SIZE bytes
    std::uint32_t opaque = 0;
    vesk_cost cost{};
    std::uint64_t arena_bytes = 0;  // the requests as an arena rounds them
    std::uint64_t lost_bytes = 0;
    std::uint64_t lost_blocks = 0;
    std::uint64_t unknown_bytes = 0;
    // The error.
    std::int32_t code = VESK_OK;
    const std::uint8_t* error_at = nullptr;
};

// What the message points to that a nested field holds now.
struct Owned {
    std::uint64_t bytes;
    std::uint64_t blocks;
};

constexpr std::uint32_t most_fields = 64;

void ask_for(Check& check, std::uint64_t size) {
    check.cost.bytes += size;
    check.cost.blocks += 1;
    if (size > check.cost.largest) check.cost.largest = size;
    check.arena_bytes += arena_bytes_for(size);
}

Owned owned_so_far(const Check& check) {
    return {check.cost.bytes - check.lost_bytes, check.cost.blocks - check.lost_blocks};
}

const std::uint8_t* fail(Check& check, std::int32_t code, const std::uint8_t* tag, const Place* place) {
    check.code = code;
    check.error_at = tag;
    print_path(place, check.path);
    return nullptr;
}

const std::uint8_t* check_message(Check& check, const vesk_type* type, const Place* place, const std::uint8_t* at,
                                  const std::uint8_t* end);

const std::uint8_t* check_undescribed(Check& check, const Place* place, const std::uint8_t* tag, const std::uint8_t* at,
                                      const std::uint8_t* end) {
    vesk_cost cost{};
    const std::int32_t code =
        try_identifier(check.options, at, static_cast<std::uint64_t>(end - at), check.flags, &cost);
    if (code == VESK_OPAQUE) {
        ++check.opaque;
        return end;
    }
    check.cost.bytes += cost.bytes;
    check.cost.blocks += cost.blocks;
    if (cost.largest > check.cost.largest) check.cost.largest = cost.largest;
    check.arena_bytes += cost.bytes + cost.blocks * arena_bytes_for(0);
    return code == VESK_OK ? end : fail(check, code, tag, place);
}

// What a nested message or element holds; `tag` is the position of its tag.
const std::uint8_t* check_content(Check& check, const vesk_type* type, const Place* place, const std::uint8_t* tag,
                                  const std::uint8_t* at, const std::uint8_t* end) {
    if (is_elsewhere(type)) {
        if (check.identifier == nullptr) return check_undescribed(check, place, tag, at, end);
        type = check.identifier;
    }
    return check_message(check, type, place, at, end);
}

// A nested message or element, `at` being the position of its length and `tag` that of its tag.
const std::uint8_t* check_nested(Check& check, const vesk_type* type, const Place* place, const std::uint8_t* tag,
                                 const std::uint8_t* at, const std::uint8_t* end) {
    const Varint length = read_length(at, end);
    if (length.at == nullptr) return fail(check, VESK_MALFORMED, tag, place);
    return check_content(check, type, place, tag, length.at, length.at + length.value);
}

// A list is counted to its end and paid for before its first element is read. Only field numbers are compared.
const std::uint8_t* check_list(Check& check, const vesk_type* type, const Place* outer, const vesk_field* field,
                               const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    Place place{outer, field, 0};
    const std::uint8_t* const first_tag = tag;
    const std::uint8_t* const first = at;
    do {
        const Varint length = read_length(at, end);
        if (length.at == nullptr) return fail(check, VESK_MALFORMED, tag, &place);
        at = tag = length.at + length.value;
        ++place.element;
        if (at == end) break;
        const Varint next = read_tag(at, end);
        if (next.at == nullptr) return fail(check, VESK_MALFORMED, tag, outer);
        at = next.at;
        if (field_number_of_tag(static_cast<std::uint32_t>(next.value)) != vesk_field_number(field)) break;
    } while (true);
    const std::uint32_t count = place.element;
    ask_for(check, std::uint64_t{count} * type->structure_size);

    at = check_nested(check, type, &(place = {outer, field, 0}), first_tag, first, end);
    for (std::uint32_t element = 1; at != nullptr && element < count; ++element) {
        place.element = element;
        at = check_nested(check, type, &place, at, read_tag(at, end).at, end);
    }
    return at;
}

// A field of any kind but a scalar, whose tag has been read. `again` says that it has occurred before.
const std::uint8_t* check_field(Check& check, const vesk_field* field, bool again, Owned* owned, const Place* outer,
                                const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    const Place place{outer, field, no_element};
    if (field->kind == VESK_KIND_MESSAGE) {
        if (again) {
            check.lost_bytes += owned->bytes;
            check.lost_blocks += owned->blocks;
        }
        const Owned before = owned_so_far(check);
        at = check_nested(check, vesk_field_nested(field), &place, tag, at, end);
        const Owned after = owned_so_far(check);
        *owned = {after.bytes - before.bytes, after.blocks - before.blocks};
        return at;
    }
    if (again) return fail(check, VESK_MALFORMED, tag, &place);
    if (field->kind == VESK_KIND_LIST) return check_list(check, vesk_field_nested(field), outer, field, tag, at, end);
    const Varint length = read_length(at, end);
    if (length.at == nullptr) return fail(check, VESK_MALFORMED, tag, &place);
    if (field->kind == VESK_KIND_STRING) {
        ask_for(check, length.value + 1);
    } else if ((check.flags & VESK_BYTES_BY_REFERENCE) == 0) {
        ask_for(check, length.value);
    }
    return length.at + length.value;
}

// Steps over a varint; null if it runs past `end`.
const std::uint8_t* skip_varint(const std::uint8_t* at, const std::uint8_t* end) {
    while (at < end) {
        if (*at++ < 0x80) return at;
    }
    return nullptr;
}

// A tag that no field of the message has.
const std::uint8_t* check_unknown(Check& check, const vesk_type* type, std::uint32_t tag_value, const Place* outer,
                                  const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    const vesk_field* const field = vesk_type_field_numbered(type, field_number_of_tag(tag_value));
    if (field != nullptr) {
        const Place place{outer, field, no_element};
        return fail(check, VESK_WRONG_WIRE_TYPE, tag, &place);
    }
    const Step step = skip_field(wire_type_of_tag(tag_value), at, end);
    if (step.code != VESK_OK) return fail(check, step.code, tag, outer);
    check.unknown_bytes += static_cast<std::uint64_t>(step.at - tag);
    return step.at;
}

const std::uint8_t* check_message(Check& check, const vesk_type* type, const Place* place, const std::uint8_t* at,
                                  const std::uint8_t* end) {
    std::uint64_t occurred = 0;
    Owned owned[most_fields];  // of the nested fields that have occurred
    // Fields usually come in the order of their declaration, so that the next one is the likeliest.
    std::uint32_t next = 0;
    while (at != end) {
        const std::uint8_t* const tag = at;
        const Varint read = read_tag(at, end);
        if (read.at == nullptr) return fail(check, VESK_MALFORMED, tag, place);
        const std::uint32_t tag_value = static_cast<std::uint32_t>(read.value);
        const vesk_field* field = vesk_type_field(type, next);
        if (next >= type->field_count || field->tag != tag_value) {
            field = vesk_type_field_numbered(type, field_number_of_tag(tag_value));
            if (field == nullptr || field->tag != tag_value) {
                at = check_unknown(check, type, tag_value, place, tag, read.at, end);
                if (at == nullptr) return nullptr;
                continue;
            }
        }
        const std::uint32_t bit = field->presence_bit;
        next = bit + 1u;
        if (field->kind <= VESK_KIND_BOOL) {
            const Place here{place, field, no_element};
            at = skip_varint(read.at, end);
            if (at == nullptr) return fail(check, VESK_MALFORMED, tag, &here);
            continue;
        }
        at = check_field(check, field, (occurred >> bit & 1) != 0, &owned[bit], place, tag, read.at, end);
        if (at == nullptr) return nullptr;
        occurred |= std::uint64_t{1} << bit;
    }
    return at;
}

void fill(vesk_report* report, const Check& check, std::int32_t code, const std::uint8_t* begin,
          const std::uint8_t* end) {
    vesk_report result;
    std::memset(&result, 0, sizeof result);
    result.code = code;
    result.opaque = check.opaque;
    result.at = static_cast<std::uint64_t>((check.code != VESK_OK ? check.error_at : end) - begin);
    std::memcpy(result.path, check.path, std::strlen(check.path) + 1);
    result.cost = check.cost;
    result.lost_bytes = check.lost_bytes;
    result.lost_blocks = check.lost_blocks;
    result.unknown_bytes = check.unknown_bytes;
    result.arena_size = check.arena_bytes == 0 ? 0 : check.arena_bytes + arena_alignment - 1;
    write_common(report, result);
}

}  // namespace
}  // namespace vesk

int32_t vesk_check(const vesk_type* type, const void* input, uint64_t length, uint32_t flags, vesk_report* report,
                   const vesk_options* given) {
    const vesk_options options = vesk::read_options(given);
    char path[VESK_PATH_SIZE];
    path[0] = '\0';
    vesk::Check check{options, vesk::describe_elsewhere(), flags, path};
    const std::uint8_t* const begin = static_cast<const std::uint8_t*>(input);
    const std::uint8_t* const end = vesk::end_of_input(begin, length);
    vesk::check_content(check, type, nullptr, begin, begin, end);
    const std::int32_t code = check.code != VESK_OK || check.opaque == 0 ? check.code : std::int32_t{VESK_OPAQUE};
    if (report != nullptr) vesk::fill(report, check, code, begin, end);
    return code;
}
