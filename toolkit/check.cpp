// Pre-flight: what decode would do with an input, without its memory. The order of the checks is decode's, since the
// first that fails decides the code.
#include "toolkit/check.hpp"

#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/encoded.hpp"
#include "toolkit/identifier.hpp"
#include "toolkit/options.hpp"
#include "toolkit/path.hpp"
#include "toolkit/types.hpp"

namespace vesk {
namespace {

// What stays the same while a message and all that is in it are checked, and what has been found.
struct Check {
    const vesk_options& options;
    // What the table at hand has in the identifier's place, once it has occurred; and its description. Short input can
    // have it very often.
    const vesk_type* identifier_row;
    const vesk_type* identifier;
    std::uint32_t flags;
    char* path;  // of the error; VESK_PATH_SIZE bytes
    std::uint32_t in_order = 1;
    std::uint32_t opaque = 0;
    Sums sums{};
    // Of what is asked for, what nothing points to any more.
    std::uint64_t lost_bytes = 0;
    std::uint64_t lost_blocks = 0;
    // The error.
    std::int32_t code = VESK_OK;
    const std::uint8_t* error_at = nullptr;
};

// What a nested field owns; of one that occurs again, nothing points to that any more.
struct Owned {
    std::uint64_t bytes;
    std::uint64_t blocks;
};

// What is owned so far.
inline Owned owned_by(const Check& check) {
    return {check.sums.cost.bytes - check.lost_bytes, check.sums.cost.blocks - check.lost_blocks};
}

inline void lose(Check& check, Owned owned) {
    check.lost_bytes += owned.bytes;
    check.lost_blocks += owned.blocks;
}

[[gnu::cold, gnu::noinline]] const std::uint8_t* fail(Check& check, std::int32_t code, const std::uint8_t* tag,
                                                      const Place* place) {
    check.code = code;
    check.in_order = 0;
    check.error_at = tag;
    print_path(place, check.path);
    return nullptr;
}

[[gnu::cold, gnu::noinline]] const std::uint8_t* fail_in(Check& check, std::int32_t code, const std::uint8_t* tag,
                                                         const Place* outer, const vesk_field* field) {
    const Place place{outer, field, no_element};
    return fail(check, code, tag, &place);
}

const std::uint8_t* check_message(Check& check, const vesk_type* type, const Place* outer, const std::uint8_t* at,
                                  const std::uint8_t* end);

const std::uint8_t* check_undescribed(Check& check, const Place* place, const std::uint8_t* tag, const std::uint8_t* at,
                                      const std::uint8_t* end) {
    check.in_order = 0;  // for all that is known
    vesk_cost cost{};
    const std::int32_t code =
        try_identifier(check.options, at, static_cast<std::uint64_t>(end - at), check.flags, &cost);
    if (code == VESK_OPAQUE) {
        ++check.opaque;
        return end;
    }
    Sums& sums = check.sums;
    sums.cost.bytes += cost.bytes;
    sums.cost.blocks += cost.blocks;
    if (cost.largest > sums.cost.largest) sums.cost.largest = cost.largest;
    sums.arena_bytes += cost.bytes + cost.blocks * arena_bytes_for(0);
    return code == VESK_OK ? end : fail(check, code, tag, place);
}

// The content of another library's message.
[[gnu::noinline]] const std::uint8_t* check_elsewhere(Check& check, const vesk_type* type, const Place* place,
                                                      const std::uint8_t* tag, const std::uint8_t* at,
                                                      const std::uint8_t* end) {
    if (type != own_identifier() && !is_identifier(type)) {
        check.in_order = 0;
        ++check.opaque;
        return end;
    }
    check.identifier = describe_elsewhere();
    if (check.identifier == nullptr) return check_undescribed(check, place, tag, at, end);
    check.identifier_row = type;
    return at != end ? check_message(check, check.identifier, place, at, end) : at;
}

// What a nested message or element holds; `tag` is the position of its tag.
inline const std::uint8_t* check_content(Check& check, const vesk_type* type, const Place* place,
                                         const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    if (is_elsewhere(type)) {
        if (type != check.identifier_row) return check_elsewhere(check, type, place, tag, at, end);
        type = check.identifier;
    }
    return at != end ? check_message(check, type, place, at, end) : at;
}

// A nested message that is read from its length at `at` on. Of an earlier occurrence `owned` says what is lost.
inline const std::uint8_t* check_nested(Check& check, const vesk_type* type, const Place* place, bool again,
                                        Owned* owned, const std::uint8_t* tag, const std::uint8_t* at,
                                        const std::uint8_t* end) {
    const Varint length = read_length(at, end);
    if (length.at == nullptr) [[unlikely]]
        return fail(check, VESK_MALFORMED, tag, place);
    if (again) [[unlikely]]
        lose(check, *owned);
    const Owned before = owned_by(check);
    at = check_content(check, type, place, tag, length.at, length.at + length.value);
    const Owned after = owned_by(check);
    *owned = {after.bytes - before.bytes, after.blocks - before.blocks};
    return at;
}

// Counts the elements of a list, or of strings or bytes fields, `at` being the position after the first one's tag. Only
// field numbers are compared: an element of another wire type counts, and is then read as a length.
inline bool count_elements(Check& check, const vesk_field* field, const Place* outer, const std::uint8_t* tag,
                           const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* elements) {
    const std::uint32_t number = vesk_field_number(field);
    std::uint32_t count = 0;
    while (true) {
        const Varint length = read_length(at, end);
        if (length.at == nullptr) [[unlikely]] {
            const Place place{outer, field, count};
            fail(check, VESK_MALFORMED, tag, &place);
            return false;
        }
        ++count;
        at = tag = length.at + length.value;
        if (at == end) break;
        const Varint read = read_tag(at, end);
        if (read.at == nullptr) [[unlikely]] {
            fail(check, VESK_MALFORMED, tag, outer);
            return false;
        }
        at = read.at;
        if (field_number_of_tag(static_cast<std::uint32_t>(read.value)) != number) break;
    }
    *elements = count;
    return true;
}

// A list is counted to its end and paid for before its first element is read.
const std::uint8_t* check_list(Check& check, const vesk_field* field, const Place* outer, const std::uint8_t* tag,
                               const std::uint8_t* at, const std::uint8_t* end) {
    const vesk_type* const type = nested_type(field);
    Place place{outer, field, 0};
    std::uint32_t count;
    if (!count_elements(check, field, outer, tag, at, end, &count)) return nullptr;
    ask_for(check.sums, std::uint64_t{count} * type->structure_size);

    for (; place.element < count; ++place.element) {
        if (place.element != 0) {
            tag = at;
            at = read_tag(at, end).at;
        }
        const Varint length = read_length(at, end);  // which counting has seen
        at = check_content(check, type, &place, tag, length.at, length.at + length.value);
        if (at == nullptr) return nullptr;
    }
    return at;
}

// A tag that no field of the message has, but perhaps its number.
[[gnu::noinline]] const std::uint8_t* check_unknown(Check& check, const vesk_field* field, std::uint32_t tag_value,
                                                    const Place* outer, const std::uint8_t* tag, const std::uint8_t* at,
                                                    const std::uint8_t* end) {
    if (field != nullptr) return fail_in(check, VESK_WRONG_WIRE_TYPE, tag, outer, field);
    const Step step = skip_field(wire_type_of_tag(tag_value), at, end);
    if (step.code != VESK_OK) return fail(check, step.code, tag, outer);
    check.sums.unknown_bytes += static_cast<std::uint64_t>(step.at - tag);
    return step.at;
}

// A string or bytes field, `at` being the position of its length.
inline const std::uint8_t* check_string(Check& check, const vesk_field* field, const Place* outer,
                                        const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    const Varint length = read_length(at, end);
    if (length.at == nullptr) [[unlikely]]
        return fail_in(check, VESK_MALFORMED, tag, outer, field);
    if (field->kind == VESK_KIND_STRING) {
        ask_for(check.sums, length.value + 1);
    } else if ((check.flags & VESK_BYTES_BY_REFERENCE) == 0) {
        ask_for(check.sums, length.value);
    }
    return length.at + length.value;
}

// ---- Kinds that messages of others have ----

// A run of strings or bytes fields, `at` being the position after the first tag.
const std::uint8_t* check_contents(Check& check, const vesk_field* field, const Place* outer, const std::uint8_t* tag,
                                   const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* count) {
    if (!count_elements(check, field, outer, tag, at, end, count)) return nullptr;
    const std::uint16_t kind = kind_of_values(field);
    ask_for(check.sums, std::uint64_t{*count} * size_of_element(kind));
    for (std::uint32_t left = *count; left != 0; --left) {
        if (left != *count) at = read_tag(at, end).at;
        const Varint length = read_length(at, end);
        // Counting has seen it; but somebody else may have written into the input.
        if (length.at == nullptr) return fail_in(check, VESK_MALFORMED, tag, outer, field);
        if (kind == VESK_KIND_STRING) {
            ask_for(check.sums, length.value + 1);
        } else if ((check.flags & VESK_BYTES_BY_REFERENCE) == 0) {
            ask_for(check.sums, length.value);
        }
        at = length.at + length.value;
    }
    return at;
}

// A run of scalars, which may hold none at all: then there is no array.
const std::uint8_t* check_scalars(Check& check, const vesk_field* field, const Place* outer, const std::uint8_t* tag,
                                  const std::uint8_t* end, std::uint32_t* count) {
    const CountedRun run = count_run(field, tag, end);
    if (run.code != VESK_OK) {
        if (run.fault == CountedRun::Fault::of_message) return fail(check, run.code, run.at, outer);
        const bool of_element = run.fault == CountedRun::Fault::of_element;
        const bool is_known = of_element && run.count < no_element;
        const Place place{outer, field, is_known ? static_cast<std::uint32_t>(run.count) : no_element};
        return fail(check, run.code, run.at, &place);
    }
    *count = static_cast<std::uint32_t>(run.count);
    if (*count != 0) ask_for(check.sums, run.count * size_of_element(kind_of_values(field)));
    return run.at;
}

// `owned` is not needed for what it is there for, and notes whether the field has an array.
const std::uint8_t* check_repeated(Check& check, const vesk_field* field, bool again, Owned* owned, const Place* outer,
                                   const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    if (again && owned->blocks != 0) return fail_in(check, VESK_MALFORMED, tag, outer, field);
    std::uint32_t count = 0;
    at = is_repeated_scalar(field) ? check_scalars(check, field, outer, tag, end, &count)
                                   : check_contents(check, field, outer, tag, at, end, &count);
    *owned = {0, count};
    return at;
}

const std::uint8_t* check_other(Check& check, const vesk_field* field, bool again, Owned* owned, const Place* outer,
                                const std::uint8_t* tag, const std::uint8_t* at, const std::uint8_t* end) {
    if (is_repeated_field(field)) return check_repeated(check, field, again, owned, outer, tag, at, end);
    at = skip_number(field->kind, at, end);
    return at != nullptr ? at : fail_in(check, VESK_MALFORMED, tag, outer, field);
}

// A field that is none of the scalars which the library's own messages have.
inline const std::uint8_t* check_sized(Check& check, const vesk_field* field, bool again, Owned* owned,
                                       const Place* outer, const std::uint8_t* tag, const std::uint8_t* at,
                                       const std::uint8_t* end) {
    if (field->kind == VESK_KIND_MESSAGE) {
        const Place place{outer, field, no_element};
        return check_nested(check, nested_type(field), &place, again, owned, tag, at, end);
    }
    if (field->kind > VESK_KIND_LIST) {
        return check_other(check, field, again, owned, outer, tag, at, end);
    }
    if (again) [[unlikely]]
        return fail_in(check, VESK_MALFORMED, tag, outer, field);
    if (field->kind == VESK_KIND_LIST) return check_list(check, field, outer, tag, at, end);
    return check_string(check, field, outer, tag, at, end);
}

const std::uint8_t* check_message(Check& check, const vesk_type* type, const Place* outer, const std::uint8_t* at,
                                  const std::uint8_t* end) {
    std::uint64_t occurred = 0;  // of the fields that are no such scalars
    Owned owned[most_fields];    // of the nested ones that have occurred
    const vesk_field* const past = vesk_type_field(type, type->field_count);
    const vesk_field* likely = vesk_type_field(type, 0);  // fields usually come in the order of their declaration
    while (at != end) {
        const std::uint8_t* const tag = at;
        const Varint read = read_tag(tag, end);
        if (read.at == nullptr) return fail(check, VESK_MALFORMED, tag, outer);
        at = read.at;
        const std::uint32_t tag_value = static_cast<std::uint32_t>(read.value);
        const vesk_field* field = likely;
        if (field == past || field->tag != tag_value) [[unlikely]] {
            field = vesk_type_field_numbered(type, field_number_of_tag(tag_value));
            if (field == nullptr || !takes_tag(field, tag_value)) [[unlikely]] {
                at = check_unknown(check, field, tag_value, outer, tag, at, end);
                if (at == nullptr) return nullptr;
                continue;
            }
            if (field < likely) check.in_order = 0;
        }
        likely = next_row(type, field);
        if (field->kind <= VESK_KIND_BOOL) {
            at = skip_varint(at, end);
            if (at == nullptr) [[unlikely]]
                return fail_in(check, VESK_MALFORMED, tag, outer, field);
            continue;
        }
        const std::uint64_t bit = std::uint64_t{1} << field->presence_bit;
        at = check_sized(check, field, (occurred & bit) != 0, &owned[field->presence_bit], outer, tag, at, end);
        if (at == nullptr) return nullptr;
        occurred |= bit;
    }
    return at;
}

}  // namespace

std::int32_t check_closely(const vesk_type* type, const void* input, std::uint64_t length, std::uint32_t flags,
                           vesk_report& report, const vesk_options& options) {
    report.path[0] = '\0';
    const std::uint8_t* const begin = static_cast<const std::uint8_t*>(input);
    const std::uint8_t* const end = end_of_input(begin, length);
    Check check{options, nullptr, nullptr, flags, report.path};
    check_content(check, type, nullptr, begin, begin, end);
    const std::int32_t code = check.code != VESK_OK || check.opaque == 0 ? check.code : std::int32_t{VESK_OPAQUE};
    report.code = code;
    report.opaque = check.opaque;
    report.at = static_cast<std::uint64_t>((check.code != VESK_OK ? check.error_at : end) - begin);
    report.cost = check.sums.cost;
    report.lost_bytes = check.lost_bytes;
    report.lost_blocks = check.lost_blocks;
    report.unknown_bytes = check.sums.unknown_bytes;
    report.arena_size = arena_size_for(check.sums.arena_bytes);
    report.in_order = check.in_order;
    return code;
}

namespace {

// The report is one of this version.
std::int32_t check_input(const vesk_type* type, const void* input, std::uint64_t length, std::uint32_t flags,
                         vesk_report& report, const vesk_options& options) {
    Sums sums;
    if (!check_in_order(type, static_cast<const std::uint8_t*>(input), length, flags, sums)) {
        return check_closely(type, input, length, flags, report, options);
    }
    report.code = VESK_OK;
    report.opaque = 0;
    report.at = length;
    report.path[0] = '\0';
    report.cost = sums.cost;
    report.lost_bytes = 0;
    report.lost_blocks = 0;
    report.unknown_bytes = sums.unknown_bytes;
    report.arena_size = arena_size_for(sums.arena_bytes);
    report.in_order = 1;
    return VESK_OK;
}

// With a report or options that may be of another version, or no report.
[[gnu::noinline]] std::int32_t check_for_others(const vesk_type* type, const void* input, std::uint64_t length,
                                                std::uint32_t flags, vesk_report* report, const vesk_options* given) {
    vesk_options own_options;
    const vesk_options& options = read_options(given, &own_options);
    vesk_report own;
    const std::int32_t code = check_input(type, input, length, flags, own, options);
    if (report != nullptr) write_common(report, own);
    return code;
}

}  // namespace
}  // namespace vesk

int32_t vesk_check(const vesk_type* type, const void* input, uint64_t length, uint32_t flags, vesk_report* report,
                   const vesk_options* options) {
    using namespace vesk;
    if (report == nullptr || report->size != sizeof *report ||
        (options != nullptr && options->size != sizeof *options)) {
        return check_for_others(type, input, length, flags, report, options);
    }
    return check_input(type, input, length, flags, *report, options != nullptr ? *options : default_options);
}
