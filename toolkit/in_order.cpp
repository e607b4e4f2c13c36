#include "runtime/wire.hpp"
#include "toolkit/check.hpp"
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

constexpr std::uint64_t word_size = sizeof(std::uint64_t);
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

// Of 8 bytes the high bits that are 0, each of which ends a varint.
inline std::uint64_t last_bytes_in(const std::uint8_t* at) {
    std::uint64_t word = 0;
    read_fixed(at, at + sizeof word, &word);
    return ~word & 0x8080808080808080;
}

// Behind the varint that starts at `at` and ends where the lowest of these bits says.
inline const std::uint8_t* behind_varint(const std::uint8_t* at, std::uint64_t last_bytes) {
    return at + 1 + static_cast<unsigned>(__builtin_ctzll(last_bytes)) / 8;
}

// Steps over a varint, one of at most 8 bytes without a branch on its length. It may end past `end`; null if it does
// not end. `last_word` is the position of the last 8 bytes of the input.
VESK_INLINE const std::uint8_t* step_over_varint(const std::uint8_t* at, const std::uint8_t* end,
                                                 const std::uint8_t* last_word) {
    if (at <= last_word) [[likely]] {
        const std::uint64_t last_bytes = last_bytes_in(at);
        if (last_bytes != 0) [[likely]]
            return behind_varint(at, last_bytes);
    } else {
        const std::uint64_t last_bytes = last_bytes_in(last_word) >> (at - last_word) * 8;
        if (last_bytes != 0) return behind_varint(at, last_bytes);
    }
    return skip_varint(at, end);
}

// How a field is found. At first the next one is expected, as in a message of which every field is set. Where one is
// left out others are, and each wrong guess would cost more than to look up the field.
enum class By { order, number };

enum class Outcome { done, refused, left_out };

// A message and those that it stands in. The stack and the sums stand apart, so that the rest can be in registers.
class Walk {
public:
    // `stack` has room for `most_outer` messages.
    Walk(const std::uint8_t* input, const std::uint8_t* end, std::uint32_t flags, Outer* stack, Sums& sums)
        : at_(input),
          end_(end),
          last_word_(end - word_size),
          flags_(flags),
          stack_(stack),
          outer_(stack),
          sums_(sums) {}

    VESK_INLINE bool run(const vesk_type* type) {
        if (!begin<By::order>(type)) return false;
        Outcome outcome = step_over_all<By::order>();
        if (outcome == Outcome::left_out) {
            find_rows();
            outcome = step_over_all<By::number>();
        }
        return outcome == Outcome::done;
    }

private:
    template <By by>
    VESK_INLINE Outcome step_over_all() {
        while (true) {
            while (at_ + 1 < end_) {  // no field is shorter
                const Outcome outcome = step_over_field<by>();
                if (outcome != Outcome::done) return outcome;
            }
            const std::uint8_t* const after = foreknown(end_);
            if (at_ != end_) return Outcome::refused;
            if (outer_ == stack_) return Outcome::done;
            at_ = after;
            if (!leave<by>()) return Outcome::refused;
        }
    }

    template <By by>
    VESK_INLINE bool begin(const vesk_type* type) {
        type_ = plain_type(type);
        if (type_ == nullptr) return false;
        least_ = first_field(type_);
        past_ = past_fields(type_);
        if constexpr (by == By::number) find_rows();
        return true;
    }

    void find_rows() { before_first_ = reinterpret_cast<const char*>(type_) + type_->fields_at - sizeof(vesk_field); }

    template <By by>
    VESK_INLINE Outcome step_over_field() {
        const std::uint8_t* const begin = at_;
        std::uint32_t tag = *at_++;
        if (tag >= 0x80) {  // of two bytes, which no function need be called for
            tag = tag - 0x80 + (std::uint32_t{*at_++} << 7);
            if (tag >= 0x4000 || at_ == end_) return Outcome::refused;
        }
        const vesk_field* field = least_;
        if constexpr (by == By::order) {
            if (field == past_ || field->tag != tag) {
                at_ = begin;
                return Outcome::left_out;
            }
        } else {
            field = field_of(tag);
            if (field == nullptr) [[unlikely]]
                return step_over_unknown(begin, tag) ? Outcome::done : Outcome::refused;
            if (field->tag != tag || field < least_) [[unlikely]]
                return Outcome::refused;
        }
        least_ = field + 1;
        if (wire_type_of_tag(tag) != varint_type) {
            return step_over_content<by>(field) ? Outcome::done : Outcome::refused;
        }
        at_ = step_over_varint(at_, end_, last_word_);
        return at_ != nullptr ? Outcome::done : Outcome::refused;
    }

    // The field of a tag's number: in most types the numbers are the places, from 1 on. Null if there is none.
    VESK_INLINE const vesk_field* field_of(std::uint32_t tag) const {
        static_assert(sizeof(vesk_field) == 24, "3 times a tag without its wire type, which is 8 times the number");
        const std::uint64_t offset = std::uint64_t{tag & ~7u} * 3;
        const auto* const field = reinterpret_cast<const vesk_field*>(before_first_ + offset);
        if (field >= least_ && field < past_ && field->tag == tag) [[likely]]
            return field;
        return field_numbered(field_number_of_tag(tag));
    }

    // Null if there is none. A plain type has no numbers that the table does not cover.
    VESK_INLINE const vesk_field* field_numbered(std::uint32_t number) const {
        if (number >= type_->number_count) return nullptr;
        const auto* const by_number =
            reinterpret_cast<const std::uint16_t*>(reinterpret_cast<const char*>(type_) + type_->by_number_at);
        const std::uint32_t place = by_number[number];
        return place != 0 ? first_field(type_) + (place - 1) : nullptr;
    }

    bool step_over_unknown(const std::uint8_t* begin, std::uint32_t tag) {
        const Step step = skip_field(wire_type_of_tag(tag), at_, end_);
        if (step.code != VESK_OK) return false;
        sums_.unknown_bytes += static_cast<std::uint64_t>(step.at - begin);
        at_ = step.at;
        return true;
    }

    template <By by>
    VESK_INLINE bool step_over_content(const vesk_field* field) {
        const Varint content = read_length(at_, end_);
        if (content.at == nullptr) return false;
        at_ = content.at;
        if (field->kind == VESK_KIND_MESSAGE || field->kind == VESK_KIND_LIST) {
            if (outer_ == stack_ + most_outer) return false;
            *outer_++ = {end_, type_, field, 1};
            end_ = at_ + content.value;
            return begin<by>(nested_type(field));
        }
        if (field->kind == VESK_KIND_STRING) {
            ask_for(sums_, content.value + 1);
        } else if ((flags_ & VESK_BYTES_BY_REFERENCE) == 0) {
            ask_for(sums_, content.value);
        }
        at_ += content.value;
        return true;
    }

    // Goes on behind a message at its end: with the next element, or the message that it stands in.
    template <By by>
    VESK_INLINE bool leave() {
        Outer& left = outer_[-1];
        if (left.field->kind == VESK_KIND_LIST) {
            const std::uint32_t number = vesk_field_number(left.field);
            const std::uint8_t* const element = at_ != left.end ? next_element(number, at_, left.end) : nullptr;
            if (element != nullptr) {
                const Varint content = read_length(element, left.end);
                at_ = content.at;
                end_ = content.at + content.value;
                least_ = first_field(type_);
                ++left.elements;
                return content.at != nullptr;
            }
            ask_for(sums_, std::uint64_t{left.elements} * nested_type(left.field)->structure_size);
        }
        go_on_in(left);
        if constexpr (by == By::number) find_rows();
        return true;
    }

    VESK_INLINE void go_on_in(const Outer& left) {
        --outer_;
        end_ = left.end;
        type_ = left.type;
        least_ = left.field + 1;
        past_ = past_fields(type_);
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
    const std::uint8_t* last_word_;
    std::uint32_t flags_;
    const vesk_type* type_ = nullptr;
    const vesk_field* least_ = nullptr;   // the first field that may come
    const vesk_field* past_ = nullptr;    // beyond the type's last
    const char* before_first_ = nullptr;  // where a field of number 0 would be; by number alone
    Outer* stack_;
    Outer* outer_;  // past the innermost
    Sums& sums_;
};

}  // namespace

// At the start of a cache line, so that its time does not depend on the code that lies before it.
[[gnu::aligned(64)]] bool check_in_order(const vesk_type* type, const std::uint8_t* input, std::uint64_t length,
                                         std::uint32_t flags, Sums& sums) {
    if (length < word_size) return false;
    sums = {};
    std::uintptr_t address;  // of the input's end, past which no length leads
    if (__builtin_add_overflow(reinterpret_cast<std::uintptr_t>(input), length, &address)) return false;
    Outer stack[most_outer];
    return Walk(input, input + length, flags, stack, sums).run(type);
}

}  // namespace vesk
