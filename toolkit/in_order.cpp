#include "toolkit/in_order.hpp"

#include "runtime/wire.hpp"
#include "toolkit/arena.hpp"
#include "toolkit/encoded.hpp"
#include "toolkit/types.hpp"

namespace vesk {
namespace {

// A message that is left for one inside it.
struct Outer {
    const std::uint8_t* end;
    const vesk_type* type;
    const vesk_field* field;  // that the inner one is, or of which it is an element
    std::uint32_t elements;   // of that list, this one included
};

constexpr unsigned most_outer = 8;  // the library's own messages are less deep

// The rows that a message of this type is read by; null if they do not say all.
inline const vesk_type* plain_type(const vesk_type* type) {
    if (type->flags != 0) {
        if (type != own_identifier()) return nullptr;
        type = describe_elsewhere();
        if (type == nullptr || type->flags != 0) return nullptr;
    }
    return type->field_size == sizeof(vesk_field) ? type : nullptr;
}

inline const vesk_field* first_field(const vesk_type* type) { return vesk_type_field(type, 0); }
inline const vesk_field* past_fields(const vesk_type* type) { return first_field(type) + type->field_count; }

// The same position, but one that the compiler takes for another: the processor then goes on from where a message's
// length says that it ends, and need not wait for the last of its fields to be stepped over.
inline const std::uint8_t* foreknown(const std::uint8_t* at) {
    asm("" : "+r"(at));
    return at;
}

inline void ask_for(InOrder& sums, std::uint64_t size) {
    sums.cost.bytes += size;
    sums.cost.blocks += 1;
    if (size > sums.cost.largest) sums.cost.largest = size;
    sums.arena_bytes += arena_bytes_for(size);
}

// Of 8 bytes the high bits that are 0, each of which ends a varint.
inline std::uint64_t last_bytes_in(const std::uint8_t* at) {
    std::uint64_t word = 0;
    read_fixed(at, at + sizeof word, &word);
    return ~word & 0x8080808080808080;
}

// Steps over a varint, one of at most 8 bytes without a branch on its length. It may end past `end`; null if it does
// not end. `last_word` is the position of the last 8 bytes of the input.
inline const std::uint8_t* step_over_varint(const std::uint8_t* at, const std::uint8_t* end,
                                            const std::uint8_t* last_word) {
    const std::uint64_t last_bytes =
        at <= last_word ? last_bytes_in(at) : last_bytes_in(last_word) >> (at - last_word) * 8;
    if (last_bytes == 0) [[unlikely]]
        return skip_varint(at, end);
    return at + 1 + static_cast<std::uint64_t>(__builtin_ctzll(last_bytes)) / 8;
}

}  // namespace

bool check_in_order(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, std::uint32_t flags,
                    InOrder& sums) {
    std::uintptr_t address;  // of the input's end, past which no length leads
    if (__builtin_add_overflow(reinterpret_cast<std::uintptr_t>(input), length, &address)) return false;
    if (length < sizeof(std::uint64_t)) return false;
    const std::uint8_t* at = input;
    const std::uint8_t* end = input + length;
    const std::uint8_t* const last_word = end - sizeof(std::uint64_t);
    type = plain_type(type);
    if (type == nullptr) return false;
    sums = {};
    Outer stack[most_outer];
    Outer* outer = stack;  // past the innermost
    const vesk_field* likely = first_field(type);
    const vesk_field* past = past_fields(type);
    while (true) {
        while (end - at >= 2) {  // no field is shorter
            const std::uint8_t* const tag = at;
            std::uint32_t tag_value = *at++;
            if (tag_value >= 0x80) {
                if (*at >= 0x80 || end - at < 2) return false;
                tag_value = tag_value - 0x80 + (std::uint32_t{*at++} << 7);
            }
            const vesk_field* field = likely;
            if (field == past || field->tag != tag_value) [[unlikely]] {
                field = vesk_type_field_numbered(type, field_number_of_tag(tag_value));
                if (field == nullptr) {
                    const Step step = skip_field(wire_type_of_tag(tag_value), at, end);
                    if (step.code != VESK_OK) return false;
                    sums.unknown_bytes += static_cast<std::uint64_t>(step.at - tag);
                    at = step.at;
                    continue;
                }
                if (field->tag != tag_value || field < likely) return false;
            }
            likely = field + 1;
            if (wire_type_of_tag(tag_value) == varint_type) {
                at = step_over_varint(at, end, last_word);
                if (at == nullptr) return false;
                continue;
            }
            const Varint content = read_length(at, end);
            if (content.at == nullptr) return false;
            at = content.at;
            if (field->kind == VESK_KIND_STRING) {
                ask_for(sums, content.value + 1);
                at += content.value;
            } else if (field->kind == VESK_KIND_BYTES) {
                if ((flags & VESK_BYTES_BY_REFERENCE) == 0) ask_for(sums, content.value);
                at += content.value;
            } else {
                if (outer == stack + most_outer) return false;
                *outer++ = {end, type, field, 1};
                end = at + content.value;
                type = plain_type(nested_type(field));
                if (type == nullptr) return false;
                likely = first_field(type);
                past = past_fields(type);
            }
        }
        const std::uint8_t* const after = foreknown(end);
        if (at != end) return false;
        if (outer == stack) break;
        at = after;
        Outer& left = outer[-1];
        if (left.field->kind == VESK_KIND_LIST) {
            const std::uint8_t* const element =
                at != left.end ? next_element(vesk_field_number(left.field), at, left.end) : nullptr;
            if (element != nullptr) {
                const Varint content = read_length(element, left.end);
                if (content.at == nullptr) return false;
                ++left.elements;
                at = content.at;
                end = at + content.value;
                likely = first_field(type);
                continue;
            }
            ask_for(sums, std::uint64_t{left.elements} * nested_type(left.field)->structure_size);
        }
        --outer;
        end = left.end;
        type = left.type;
        likely = left.field + 1;
        past = past_fields(type);
    }
    return true;
}

}  // namespace vesk
