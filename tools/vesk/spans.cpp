#include "tools/vesk/spans.hpp"

#include <algorithm>

#include "tools/vesk/output.hpp"
#include "tools/vesk/types.hpp"
#include "tools/vesk/values.hpp"
#include "tools/vesk/varint.hpp"

namespace vesk::tool {
namespace {

// What a general protobuf parser reads no further than.
constexpr std::uint64_t longest_tag = 5;
constexpr std::uint64_t longest_number = 10;
constexpr std::uint64_t most_bytes_of_a_length = 5;
constexpr std::uint64_t longest_length = 0x7FFFFFFF - 16;
constexpr std::uint32_t most_groups = 100;  // inside one another

struct Quoted {
    std::string_view bytes;
};

// The parts that what a span means is put together of.
void append(std::string& text, std::string_view words) { text += words; }
void append(std::string& text, std::uint64_t number) { text += std::to_string(number); }
void append(std::string& text, Quoted quoted) { text += quote(quoted.bytes); }
void append(std::string& text, const vesk_field* field) {
    static const char* const words[] = {"", "number", "number", "flag", "string", "bytes", "message", "list"};
    const std::uint16_t kind = kind_of_values(field);
    text.append("field ").append(std::to_string(vesk_field_number(field))).append(" ").append(vesk_field_name(field));
    text.append(", ")
        .append(is_repeated_field(field) ? "repeated " : "")
        .append(words[is_scalar_kind(kind) && kind != VESK_KIND_BOOL ? 1 : kind]);
}

// What a walk tells; either may be null.
struct Listener {
    const std::function<void(const Span&)>* span;
    const std::function<void(const Difference&)>* difference;
};

class Walker {
public:
    Walker(const std::uint8_t* input, std::uint64_t length, const vesk_report& report, Listener listener)
        : input_(input),
          length_(length),
          stop_(report.code == VESK_OK ? never : report.at),
          refused_(report.path),
          listener_(listener) {}

    void walk(const vesk_type* type) {
        walk_message(type, length_, 0);
        if (at_ < length_) {
            give(length_, Role::beyond, 0, "", counted(length_ - at_, "byte"), " after the place where decoding ended");
        }
    }

private:
    // Everything before `to` that no span has yet becomes one. What it means is put together only if somebody listens.
    template <class... Parts>
    void give(std::uint64_t to, Role role, std::uint32_t depth, std::string_view path, const Parts&... meaning) {
        if (to <= at_) return;
        if (listener_.span != nullptr) {
            text_.clear();
            (append(text_, meaning), ...);
            (*listener_.span)({at_, to, role, depth, path, text_});
        }
        at_ = to;
    }

    void differ(std::uint64_t at, std::string_view path, Row row) const {
        if (listener_.difference != nullptr) (*listener_.difference)({at, path, &text_of(row)});
    }

    Varint read(std::uint64_t at, std::uint64_t end) const { return read_varint(input_, at, end); }

    // ---- What another parser does with a tag, a length or a number that is read here ----

    void compare_tag(const Varint& tag) const {
        if (tag.size() > longest_tag) differ(tag.from, path_, Row::tag_of_more_than_5_bytes_is_read);
    }

    void compare_length(const Varint& tag, const Varint& length) const {
        if (length.size() > most_bytes_of_a_length) {
            differ(tag.from, path_, Row::length_of_more_than_5_bytes_is_read);
        } else if (length.value > UINT32_MAX) {
            differ(tag.from, path_, Row::length_above_2_gib_keeps_its_low_32_bits);
        } else if (length.value > longest_length) {
            differ(tag.from, path_, Row::field_of_2_gib_is_read);
        }
    }

    void compare_number(const Varint& tag, const Varint& number) const {
        if (number.size() > longest_number) differ(tag.from, path_, Row::number_of_more_than_10_bytes_is_read);
    }

    // Where it goes on behind a field that it does not know; `never` if it refuses that.
    std::uint64_t past_unknown(const Varint& tag, std::uint64_t end, std::uint32_t groups_around = 0) const {
        if (tag.to == never || tag.size() > longest_tag || tag.number() == 0) return never;
        const auto past = [&](std::uint64_t size) { return end - tag.to >= size ? tag.to + size : never; };
        const Varint number = read(tag.to, end);
        switch (tag.wire_type()) {
            case varint_type: return number.to != never && number.size() <= longest_number ? number.to : never;
            case length_type: return number.reaches_past(end) ? never : number.to + number.length();
            case fixed64_type: return past(8);
            case fixed32_type: return past(4);
            case group_type: return groups_around < most_groups ? past_group(tag, end, groups_around) : never;
            default: return never;
        }
    }

    std::uint64_t past_group(const Varint& begin, std::uint64_t end, std::uint32_t groups_around) const {
        for (std::uint64_t at = begin.to; at != never;) {
            const Varint tag = read(at, end);
            if (tag.to != never && tag.wire_type() == end_of_group_type) {
                return tag.number() == begin.number() ? tag.to : never;
            }
            at = past_unknown(tag, end, groups_around + 1);
        }
        return never;
    }

    // A tag that is refused here. What is longer, cut short or of another wire type is refused there, too.
    void compare_refused(const Varint& tag, const vesk_field* field, bool again, std::uint64_t end) const {
        const std::uint32_t wire_type = tag.wire_type();
        if (past_unknown(tag, end) == never) return;
        if (wire_type == group_type) return differ(tag.from, refused_, Row::group_is_refused);
        const bool is_skipped = wire_type <= length_type || wire_type == fixed32_type;
        if (field == nullptr || !is_skipped) return;
        if (!takes_tag(field, static_cast<std::uint32_t>(tag.value))) {
            differ(tag.from, refused_, Row::known_field_of_other_wire_type_is_refused);
        } else if (again && has_count(field)) {
            differ(tag.from, refused_, Row::list_in_two_runs_is_refused);
        } else if (again && field->kind == VESK_KIND_STRING) {
            differ(tag.from, refused_, Row::string_twice_is_refused);
        } else if (again && field->kind == VESK_KIND_BYTES) {
            differ(tag.from, refused_, Row::bytes_twice_is_refused);
        }
    }

    // ---- The walk ----

    // The tag that decoding stopped at: cut short, of an unknown field or of a known one.
    void walk_refused(const vesk_type* type, std::uint64_t occurred, std::uint64_t end, std::uint32_t depth) {
        stopped_ = true;
        const Varint tag = read(at_, end);
        if (tag.to == never) return give(end, Role::tag, depth, refused_, "a tag: refused, it is cut short");
        const vesk_field* const field = vesk_type_field_numbered(type, tag.number());
        const bool again = field != nullptr && (occurred >> field->presence_bit & 1) != 0;
        compare_refused(tag, field, again, end);
        const std::string why = why_refused(tag, field, again, end);
        if (field == nullptr) {
            give(tag.to, Role::tag, depth, refused_, "unknown field ", tag.number(), ": refused, ", why);
        } else {
            give(tag.to, Role::tag, depth, refused_, field, ": refused, ", why);
        }
    }

    // The order is the decoder's: the first that does not hold.
    std::string why_refused(const Varint& tag, const vesk_field* field, bool again, std::uint64_t end) const {
        const std::uint32_t wire_type = tag.wire_type();
        if (field != nullptr && !takes_tag(field, static_cast<std::uint32_t>(tag.value))) {
            return "since it has wire type " + std::to_string(wire_type);
        }
        if (field != nullptr && has_count(field) && again) {
            return is_repeated_field(field) ? "since the repeated field began before" : "since the list began before";
        }
        if (field != nullptr && (field->kind == VESK_KIND_STRING || field->kind == VESK_KIND_BYTES) && again) {
            return "since it occurs a second time";
        }
        if (field != nullptr && is_scalar_kind(kind_of_values(field)) && wire_type != length_type) {
            return "its number is cut short";
        }
        if (wire_type != varint_type && wire_type != length_type) {
            return "since wire type " + std::to_string(wire_type) + " cannot be skipped";
        }
        const Varint number = read(tag.to, end);
        if (number.to == never) return wire_type == varint_type ? "its number is cut short" : "its length is cut short";
        if (field != nullptr && is_repeated_scalar(field) && !number.reaches_past(end)) {
            return "its last element is cut short";
        }
        return why_too_long(number, end);
    }

    static std::string why_too_long(const Varint& length, std::uint64_t end) {
        return "its length of " + std::to_string(length.length()) + " reaches " +
               counted(length.length() - (end - length.to), "byte") + " past the end";
    }

    // From at_ on. False where decoding stopped, or what is there makes no sense, which is left to the caller.
    bool walk_message(const vesk_type* type, std::uint64_t end, std::uint32_t depth) {
        std::uint64_t occurred = 0;  // a bit for each field
        while (at_ < end) {
            if (at_ == stop_) {
                walk_refused(type, occurred, end, depth);
                return false;
            }
            const Varint tag = read(at_, end);
            if (tag.to == never) return false;
            const vesk_field* const field = vesk_type_field_numbered(type, tag.number());
            if (field == nullptr) {
                if (!walk_unknown(tag, end, depth)) return false;
                continue;
            }
            const bool again = (occurred >> field->presence_bit & 1) != 0;
            const std::uint64_t before = occurred;
            occurred |= std::uint64_t{1} << field->presence_bit;
            if (!takes_tag(field, static_cast<std::uint32_t>(tag.value))) return false;
            const std::size_t outer = path_.size();
            path_.append(outer == 0 ? "" : ".").append(vesk_field_name(field));
            const bool goes_on = walk_field(field, again, tag, end, depth);
            path_.resize(outer);
            if (!goes_on) return false;
            if (is_repeated_scalar(field) && elements_ == 0) occurred = before;  // it has no array, and may come again
        }
        return true;
    }

    bool walk_unknown(const Varint& tag, std::uint64_t end, std::uint32_t depth) {
        const Varint number = read(tag.to, end);  // or a length
        std::uint64_t to = never;
        bool cut_short = false;
        switch (tag.wire_type()) {
            case varint_type:
                to = number.to;
                if (to != never) compare_number(tag, number);
                break;
            case length_type:
                if (number.to == never) break;
                cut_short = number.reaches_past(end);
                to = cut_short ? end : number.to + number.length();
                compare_length(tag, number);
                break;
            case fixed64_type:
            case fixed32_type: {
                const std::uint64_t size = tag.wire_type() == fixed64_type ? 8 : 4;
                cut_short = size > end - tag.to;
                to = cut_short ? end : tag.to + size;
                break;
            }
            default: break;
        }
        if (to == never) return false;
        compare_tag(tag);
        const bool has_number = tag.number() != 0;
        differ(tag.from, path_, has_number ? Row::unknown_field_is_dropped : Row::field_number_0_is_unknown_field);
        if (cut_short) differ(tag.from, path_, Row::unknown_field_cut_short_is_accepted);
        give(to, Role::unknown, depth, path_, "unknown field ", tag.number(), ", wire type ", tag.wire_type(),
             cut_short ? ", cut short" : "");
        return true;
    }

    bool walk_field(const vesk_field* field, bool again, const Varint& tag, std::uint64_t end, std::uint32_t depth) {
        if (has_count(field)) {
            if (again) return false;
            return is_repeated_scalar(field) ? walk_scalars(field, tag, end, depth) : walk_list(field, tag, end, depth);
        }
        if (is_scalar_kind(field->kind)) return walk_scalar(field, tag, end, depth);
        const bool is_message = field->kind == VESK_KIND_MESSAGE;
        const Varint length = read(tag.to, end);
        if ((again && !is_message) || length.reaches_past(end)) return false;
        if (again) differ(tag.from, path_, Row::nested_message_twice_is_replaced);
        return walk_content(field, tag, length, depth);
    }

    bool walk_scalar(const vesk_field* field, const Varint& tag, std::uint64_t end, std::uint32_t depth) {
        std::uint64_t number;
        const std::uint8_t* const after = read_number(kind_of_values(field), input_ + tag.to, input_ + end, &number);
        if (after == nullptr) return false;
        compare_tag(tag);
        compare_scalar(field, tag, tag.to, end);
        give(tag.to, Role::tag, depth, path_, field);
        give_number(field, number, static_cast<std::uint64_t>(after - input_), depth);
        return true;
    }

    void give_number(const vesk_field* field, std::uint64_t number, std::uint64_t to, std::uint32_t depth) {
        give(to, Role::value, depth, path_, number_in_words(kind_of_values(field), number));
    }

    // Of a varint at `at`.
    void compare_scalar(const vesk_field* field, const Varint& tag, std::uint64_t at, std::uint64_t end) const {
        if (fixed_size(kind_of_values(field)) != 0) return;
        const Varint number = read(at, end);
        compare_number(tag, number);
        const bool is_flag = kind_of_values(field) == VESK_KIND_BOOL;
        if (is_flag && static_cast<std::uint32_t>(number.value) == 0 && number.value != 0) {
            differ(tag.from, path_, Row::flag_is_read_from_32_bits);
        }
    }

    // A run of scalars, one by one and packed. Its first tag has been read.
    bool walk_scalars(const vesk_field* field, Varint tag, std::uint64_t end, std::uint32_t depth) {
        const std::size_t outer = path_.size();
        elements_ = 0;
        while (true) {
            path_.resize(outer);
            const bool packed = tag.wire_type() == length_type;
            if (tag.from == stop_) {
                give_refused_scalars(field, tag, end, depth);
                return false;
            }
            if (!packed) path_.append("[").append(std::to_string(elements_++)).append("]");
            const bool goes_on = packed ? walk_packed(field, tag, end, depth) : walk_scalar(field, tag, end, depth);
            if (!goes_on) return false;
            if (at_ == end) return true;
            tag = read(at_, end);
            if (tag.to == never || tag.number() != vesk_field_number(field)) return true;
            if (tag.from != stop_ && !takes_tag(field, static_cast<std::uint32_t>(tag.value))) return false;
        }
    }

    bool walk_packed(const vesk_field* field, const Varint& tag, std::uint64_t end, std::uint32_t depth) {
        const Varint length = read(tag.to, end);
        if (length.reaches_past(end)) return false;
        compare_tag(tag);
        compare_length(tag, length);
        give(tag.to, Role::tag, depth, path_, field);
        give(length.to, Role::length, depth, path_, "length ", length.length(), " of ", path_);
        const std::uint64_t content_end = length.to + length.length();
        const std::size_t outer = path_.size();
        while (at_ < content_end) {
            path_.resize(outer);
            path_.append("[").append(std::to_string(elements_++)).append("]");
            std::uint64_t number;
            const std::uint8_t* const after =
                read_number(kind_of_values(field), input_ + at_, input_ + content_end, &number);
            if (after == nullptr) return false;
            compare_scalar(field, tag, at_, content_end);
            give_number(field, number, static_cast<std::uint64_t>(after - input_), depth);
        }
        return true;
    }

    void give_refused_scalars(const vesk_field* field, const Varint& tag, std::uint64_t end, std::uint32_t depth) {
        stopped_ = true;
        compare_refused(tag, field, false, end);
        give(tag.to, Role::tag, depth, refused_, field, ": refused, ", why_refused(tag, field, false, end));
    }

    // A string, bytes field, nested message or element that is all there.
    bool walk_content(const vesk_field* field, const Varint& tag, const Varint& length, std::uint32_t depth) {
        const std::uint64_t end = length.to + length.length();
        compare_tag(tag);
        compare_length(tag, length);
        give(tag.to, Role::tag, depth, path_, field);
        give(length.to, Role::length, depth, path_, "length ", length.length(), " of ", path_);
        const std::string_view bytes(reinterpret_cast<const char*>(input_ + length.to), length.length());
        if (kind_of_values(field) == VESK_KIND_STRING) {
            if (bytes.find('\0') != std::string_view::npos) differ(tag.from, path_, Row::string_ends_at_embedded_nul);
            give(end, Role::value, depth, path_, Quoted{bytes});
            return true;
        }
        if (kind_of_values(field) == VESK_KIND_BYTES) {
            give(end, Role::value, depth, path_, counted(bytes.size(), "byte"));
            return true;
        }
        const vesk_type* const nested = describe(vesk_field_nested(field));
        if (nested == nullptr) {
            give(end, Role::value, depth, path_, opaque_in_words(vesk_field_nested(field)));
            return true;
        }
        const bool whole = walk_message(nested, end, depth + 1);
        if (stopped_) return false;
        // A list is counted to its end before its elements are read, so a later element may have ended the decoding
        // first.
        if (!whole) give(end, Role::value, depth + 1, path_, "not read: decoding ended before it came here");
        return true;
    }

    // Only field numbers are compared: an element of another wire type is read as a length, too.
    bool walk_list(const vesk_field* field, Varint tag, std::uint64_t end, std::uint32_t depth) {
        const std::size_t outer = path_.size();
        for (std::uint64_t element = 0;; ++element) {
            path_.resize(outer);
            path_.append("[").append(std::to_string(element)).append("]");
            if (tag.wire_type() != length_type) {
                differ(tag.from, path_, Row::list_element_of_other_wire_type_is_read_as_element);
            }
            const Varint length = read(tag.to, end);
            if (tag.from == stop_) {
                stopped_ = true;
                give(tag.to, Role::tag, depth, refused_, field, ": refused, ",
                     length.to == never ? "its length is cut short" : why_too_long(length, end));
                return false;
            }
            if (length.reaches_past(end) || !walk_content(field, tag, length, depth)) return false;
            if (at_ == end) return true;
            tag = read(at_, end);
            if (tag.to == never || tag.number() != vesk_field_number(field)) return true;
        }
    }

    const std::uint8_t* input_;
    std::uint64_t length_;
    std::uint64_t stop_;
    std::string refused_;  // the path of what decoding stopped at
    Listener listener_;
    std::uint64_t at_ = 0;
    std::string path_;            // of the field at at_: walk_message appends each of them, and cuts it off again
    std::string text_;            // what the latest span means
    std::uint64_t elements_ = 0;  // of the run of scalars that was met last
    bool stopped_ = false;
};

}  // namespace

const char* name_of(Role role) {
    switch (role) {
        case Role::tag: return "tag";
        case Role::length: return "length";
        case Role::value: return "value";
        case Role::unknown: return "unknown";
        case Role::beyond: return "beyond";
    }
    return "";
}

void for_each_span(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
                   const std::function<void(const Span&)>& take) {
    Walker(input, length, report, {&take, nullptr}).walk(type);
}

void for_each_difference(const vesk_type* type, const std::uint8_t* input, std::uint64_t length,
                         const vesk_report& report, const std::function<void(const Difference&)>& take) {
    Walker(input, length, report, {nullptr, &take}).walk(type);
}

}  // namespace vesk::tool
