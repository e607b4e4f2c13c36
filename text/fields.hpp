// A message as its fields, whoever holds them: a structure, or encoded bytes in any order or in that of the
// declaration. All answer the same questions, so that what is printed of a message, and in which order, stands once
// (printer.hpp):
//
//     next(place)        the first field, from a place on, that is present in what encoding writes or decoding leaves
//     number(field)      of a scalar; a flag is 0 or 1
//     data(field)        of a string or bytes field
//     nested(field)      the message that a field holds: what another such reader is made of
//     elements(field)    of a list, one after the other: next(&content) until that is false
//     values(field)      of a repeated field: next(&value), as well
//
// Each field that next() gives is asked for once, to its end, before the next one.
#pragma once

#include <vesk/vesk_facts.h>

#include <cstdint>
#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/encoded.hpp"
#include "toolkit/message.hpp"

namespace vesk {

// An element of a repeated field: a scalar, or a string or bytes.
struct Value {
    std::uint64_t number;
    Data data;
};

// ---- In a structure ------------------------------------------------------------------------------------------------

class StructureFields {
public:
    struct Content {
        const std::uint8_t* message;
    };

    StructureFields(const vesk_type* type, Content content)
        : type_(type), message_(content.message), presence_(load_presence(type, content.message)) {}

    const vesk_field* next(std::uint32_t place) const {
        for (; place < type_->field_count; ++place) {
            const vesk_field* const field = vesk_type_field(type_, place);
            if (is_encoded(presence_, field, message_)) return field;
        }
        return nullptr;
    }
    std::uint64_t number(const vesk_field* field) const {
        const std::uint64_t value = load_scalar(field, message_);
        return field->kind == VESK_KIND_BOOL ? value != 0 : value;
    }
    Data data(const vesk_field* field) const;
    Content nested(const vesk_field* field) const { return {message_ + field->offset}; }

    class Elements {
    public:
        Elements(const std::uint8_t* array, std::uint32_t count, std::uint32_t size)
            : array_(array), count_(count), size_(size) {}
        bool next(Content* content) {
            if (count_ == 0) return false;
            --count_;
            *content = {array_};
            array_ += size_;
            return true;
        }

    private:
        const std::uint8_t* array_;
        std::uint32_t count_;
        std::uint32_t size_;
    };
    Elements elements(const vesk_field* field) const {
        const List list = load_list(field, message_);
        return {static_cast<const std::uint8_t*>(list.array), list.count, list.type->structure_size};
    }

    class Values {
    public:
        explicit Values(const Repeated& repeated) : repeated_(repeated) {}
        bool next(Value* value);

    private:
        Repeated repeated_;
        std::uint32_t index_ = 0;
    };
    Values values(const vesk_field* field) const { return Values(load_repeated(field, message_)); }

private:
    const vesk_type* type_;
    const std::uint8_t* message_;
    std::uint64_t presence_;
};

// ---- In encoded bytes ----------------------------------------------------------------------------------------------

// What a length at `at` covers; nothing if it runs past `end`.
struct Stretch {
    const std::uint8_t* at;
    const std::uint8_t* end;
};
inline Stretch read_stretch(const std::uint8_t* at, const std::uint8_t* end) {
    const Varint length = read_length(at, end);
    return length.at != nullptr ? Stretch{length.at, length.at + length.value} : Stretch{end, end};
}
inline Data data_of(Stretch stretch) { return {stretch.at, static_cast<std::uint64_t>(stretch.end - stretch.at)}; }

// The bytes have passed vesk_check. Every read is held to the end all the same, so that bytes which somebody changes
// meanwhile are misread, but never left.
class EncodedFields {
public:
    using Content = Stretch;

    EncodedFields(const vesk_type* type, Content content);

    const vesk_field* next(std::uint32_t place) const {
        const std::uint64_t left = place < most_fields ? present_ >> place : 0;
        return left != 0 ? vesk_type_field(type_, place + static_cast<std::uint32_t>(__builtin_ctzll(left))) : nullptr;
    }
    std::uint64_t number(const vesk_field* field) const {
        const std::uint8_t* const at = values_[field->presence_bit];
        if (field->kind > VESK_KIND_BOOL || at == end_ || *at >= 0x80) return long_number(field, at);
        return field->kind == VESK_KIND_BOOL ? *at != 0 : *at;
    }
    Data data(const vesk_field* field) const { return data_of(nested(field)); }
    Content nested(const vesk_field* field) const { return read_stretch(values_[field->presence_bit], end_); }

    class Elements {
    public:
        Elements(const vesk_field* field, const std::uint8_t* at, const std::uint8_t* end)
            : number_(vesk_field_number(field)), at_(at), end_(end) {}
        bool next(Content* content);

        // After the last element: where the tag of the next field begins.
        const std::uint8_t* next_tag() const { return next_tag_; }

    private:
        std::uint32_t number_;
        const std::uint8_t* at_;  // of the next element's length; null after the last
        const std::uint8_t* end_;
        const std::uint8_t* next_tag_ = nullptr;
    };
    Elements elements(const vesk_field* field) const { return {field, values_[field->presence_bit], end_}; }

    class Values {
    public:
        Values(const vesk_field* field, const std::uint8_t* at, const std::uint8_t* end)
            : run_(field, at, end), elements_(field, at, end), of_scalars_(is_repeated_scalar(field)) {}
        bool next(Value* value);

    private:
        ScalarRun run_;
        Elements elements_;
        bool of_scalars_;
    };
    Values values(const vesk_field* field) const { return {field, values_[field->presence_bit], end_}; }

private:
    std::uint64_t long_number(const vesk_field* field, const std::uint8_t* at) const;
    const std::uint8_t* note(const vesk_field* field, const std::uint8_t* tag, const std::uint8_t* at);

    const vesk_type* type_;
    const std::uint8_t* end_;
    std::uint64_t present_ = 0;  // a bit for each field, by its place
    // Of these, after the tag of the last occurrence, of a list's first element; of a run of scalars its first tag.
    const std::uint8_t* values_[most_fields];
};

// The same of bytes in which vesk_check has found every field in its place: the first occurrence is the last, so that
// one pass reads them, with nothing noted.
class OrderedFields {
public:
    struct Content {
        Stretch stretch;
        Input input;  // all of it
    };

    OrderedFields(const vesk_type* type, const Content& content)
        : type_(type), at_(content.stretch.at), end_(content.stretch.end), input_(content.input) {}

    VESK_INLINE const vesk_field* next(std::uint32_t) {
        while (at_ != end_) {
            const Varint tag = read_tag(at_, end_);
            if (tag.at == nullptr) break;
            const std::uint32_t tag_value = static_cast<std::uint32_t>(tag.value);
            const vesk_field* const field = vesk_type_field_numbered(type_, field_number_of_tag(tag_value));
            if (field == nullptr) {
                const Step step = skip_field(wire_type_of_tag(tag_value), tag.at, end_);
                if (step.at == nullptr) break;
                at_ = step.at;
            } else if (!is_repeated_scalar(field)) {
                at_ = tag.at;
                return field;
            } else if (begins_run(field)) {
                return field;
            }
        }
        return nullptr;
    }
    VESK_INLINE std::uint64_t number(const vesk_field* field) {
        if (field->kind > VESK_KIND_BOOL) return other_number(field);
        const Varint varint = read_word_varint64(at_, end_, input_);
        at_ = varint.at != nullptr ? varint.at : end_;
        if (field->kind == VESK_KIND_UINT64) return varint.value;
        const std::uint32_t low = static_cast<std::uint32_t>(varint.value);
        return field->kind == VESK_KIND_BOOL ? Bool::from_wire(low) : low;
    }
    Data data(const vesk_field*) { return data_of(take_stretch()); }
    Content nested(const vesk_field*) { return {take_stretch(), input_}; }

    class Elements {
    public:
        Elements(OrderedFields& fields, const vesk_field* field) : fields_(fields), number_(vesk_field_number(field)) {}
        bool next(Stretch* stretch) {
            if (!is_first_) {
                const std::uint8_t* const at = next_element(number_, fields_.at_, fields_.end_);
                if (at == nullptr) return false;
                fields_.at_ = at;
            }
            is_first_ = false;
            *stretch = fields_.take_stretch();
            return true;
        }
        bool next(Content* content) {
            content->input = fields_.input_;
            return next(&content->stretch);
        }

    private:
        OrderedFields& fields_;
        std::uint32_t number_;
        bool is_first_ = true;
    };
    Elements elements(const vesk_field* field) { return {*this, field}; }

    class Values {
    public:
        Values(OrderedFields& fields, const vesk_field* field)
            : fields_(fields),
              run_(field, fields.at_, fields.end_),
              elements_(fields, field),
              of_scalars_(is_repeated_scalar(field)) {}
        bool next(Value* value);

    private:
        OrderedFields& fields_;
        ScalarRun run_;
        Elements elements_;
        bool of_scalars_;
    };
    Values values(const vesk_field* field) { return {*this, field}; }

private:
    Stretch take_stretch() {
        const Stretch stretch = read_stretch(at_, end_);
        at_ = stretch.end;
        return stretch;
    }

    bool begins_run(const vesk_field* field);
    std::uint64_t other_number(const vesk_field* field);

    const vesk_type* type_;
    const std::uint8_t* at_;  // after the tag of the field that was given last, of a run of scalars its first tag
    const std::uint8_t* end_;
    Input input_;
};

}  // namespace vesk
