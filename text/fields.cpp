#include "text/fields.hpp"

namespace vesk {

// ---- In a structure ------------------------------------------------------------------------------------------------

Data StructureFields::data(const vesk_field* field) const {
    if (field->kind == VESK_KIND_BYTES) return load_data(field, message_);
    const char* const string = load_string(field, message_);
    return {reinterpret_cast<const std::uint8_t*>(string), std::strlen(string)};
}

bool StructureFields::Values::next(Value* value) {
    if (index_ == repeated_.count) return false;
    if (repeated_.kind == VESK_KIND_STRING) {
        const char* const string = string_at(repeated_, index_);
        value->data = {reinterpret_cast<const std::uint8_t*>(string), std::strlen(string)};
    } else if (repeated_.kind == VESK_KIND_BYTES) {
        value->data = data_at(repeated_, index_);
    } else {
        const std::uint64_t number = load_number(repeated_.kind, element_at(repeated_, index_));
        value->number = repeated_.kind == VESK_KIND_BOOL ? number != 0 : number;
    }
    ++index_;
    return true;
}

// ---- In encoded bytes ----------------------------------------------------------------------------------------------

EncodedFields::EncodedFields(const vesk_type* type, Content content) : type_(type), end_(content.end) {
    // Fields usually come in the order of their declaration, so that the next one is the likeliest.
    std::uint32_t next = 0;
    const std::uint8_t* at = content.at;
    while (at != nullptr && at != end_) {
        const Varint tag = read_tag(at, end_);
        if (tag.at == nullptr) return;
        const std::uint32_t tag_value = static_cast<std::uint32_t>(tag.value);
        const vesk_field* field = vesk_type_field(type, next);
        if (next >= type->field_count || field->tag != tag_value) {
            field = vesk_type_field_numbered(type, field_number_of_tag(tag_value));
            if (field == nullptr) {
                at = skip_field(wire_type_of_tag(tag_value), tag.at, end_).at;
                continue;
            }
        }
        next = field->presence_bit + 1u;
        if (field->kind <= VESK_KIND_BOOL && tag.at != end_ && *tag.at < 0x80) {
            values_[field->presence_bit] = tag.at;
            present_ |= std::uint64_t{1} << field->presence_bit;
            at = tag.at + 1;
        } else {
            at = note(field, at, tag.at);
        }
    }
}

const std::uint8_t* EncodedFields::note(const vesk_field* field, const std::uint8_t* tag, const std::uint8_t* at) {
    values_[field->presence_bit] = is_repeated_scalar(field) ? tag : at;
    present_ |= std::uint64_t{1} << field->presence_bit;
    if (is_repeated_scalar(field)) {
        // As of a list that has no element, nothing is printed of one that is packed and empty.
        const CountedRun run = count_run(field, tag, end_);
        if (run.count == 0) present_ &= ~(std::uint64_t{1} << field->presence_bit);
        return run.at != tag ? run.at : end_;
    }
    if (has_count(field)) {
        Elements elements(field, at, end_);
        for (Content content{}; elements.next(&content);) continue;
        return elements.next_tag();
    }
    return is_scalar_kind(field->kind) ? skip_number(field->kind, at, end_) : read_stretch(at, end_).end;
}

bool EncodedFields::Values::next(Value* value) {
    if (of_scalars_) return run_.next(&value->number);
    Content content{};
    if (!elements_.next(&content)) return false;
    value->data = data_of(content);
    return true;
}

bool EncodedFields::Elements::next(Content* content) {
    if (at_ == nullptr) return false;
    *content = read_stretch(at_, end_);
    next_tag_ = content->end;
    at_ = next_element(number_, next_tag_, end_);
    return true;
}

std::uint64_t EncodedFields::long_number(const vesk_field* field, const std::uint8_t* at) const {
    std::uint64_t number = 0;
    read_number(field->kind, at, end_, &number);
    return number;
}

// ---- In encoded bytes, in order ------------------------------------------------------------------------------------

bool OrderedFields::begins_run(const vesk_field* field) {
    // As of a list that has no element, nothing is printed of one that is packed and empty.
    const CountedRun run = count_run(field, at_, end_);
    if (run.count != 0) return true;
    at_ = run.at != at_ ? run.at : end_;
    return false;
}

std::uint64_t OrderedFields::other_number(const vesk_field* field) {
    std::uint64_t number = 0;
    const std::uint8_t* const after = read_number(field->kind, at_, end_, &number);
    at_ = after != nullptr ? after : end_;
    return number;
}

bool OrderedFields::Values::next(Value* value) {
    if (of_scalars_) {
        const bool is_there = run_.next(&value->number);
        fields_.at_ = run_.at();
        return is_there;
    }
    Stretch stretch{};
    if (!elements_.next(&stretch)) return false;
    value->data = data_of(stretch);
    return true;
}

}  // namespace vesk
