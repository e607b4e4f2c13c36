// The facts of message types as the constant data that vesk_facts.h describes, made while compiling of their field
// lists and of their names, which the generator lists in a file for each unit:
//
//     VESK_NAMES(vesk_pem_data, "client_service", "pem_data", "entity_common", "fru_common", "f3", "f4")
//     VESK_IMPORTED_NAMES(vesk_drin_eid_st, "drin_eid", "drin_eid_st")
//
// Nothing in it is a pointer, so it lies in read-only memory and nothing is relocated.
#pragma once

#include <vesk/vesk_facts.h>

#include <cstddef>
#include <type_traits>

#include "runtime/schema.hpp"

namespace vesk {

// ---- Names ---------------------------------------------------------------------------------------------------------

template <std::size_t FieldCount>
struct Names {
    const char* unit;
    const char* type;
    const char* fields[FieldCount == 0 ? 1 : FieldCount];
};

template <class... Fields>
consteval Names<sizeof...(Fields)> make_names(const char* unit, const char* type, Fields... fields) {
    return {unit, type, {fields...}};
}

// The names of a message type; specialised where they are listed. Of another library's type only the first two are
// known.
template <class Message>
inline constexpr auto names = make_names("", "");

consteval std::size_t length_of(const char* name) {
    std::size_t length = 0;
    while (name[length] != '\0') ++length;
    return length;
}

// ---- The structure -------------------------------------------------------------------------------------------------

// Places one member after the other as the C rules of layout do.
struct Layout {
    std::size_t end = 0;

    template <class Member>
    constexpr std::uint32_t place() {
        const std::size_t offset = (end + alignof(Member) - 1) / alignof(Member) * alignof(Member);
        end = offset + sizeof(Member);
        return static_cast<std::uint32_t>(offset);
    }
};

constexpr std::uint16_t fact_of_kind(Kind kind) {
    switch (kind) {
        case Kind::uint32: return VESK_KIND_UINT32;
        case Kind::uint64: return VESK_KIND_UINT64;
        case Kind::boolean: return VESK_KIND_BOOL;
        case Kind::string: return VESK_KIND_STRING;
        case Kind::bytes: return VESK_KIND_BYTES;
        case Kind::message: return VESK_KIND_MESSAGE;
        case Kind::list: return VESK_KIND_LIST;
        case Kind::sint32: return VESK_KIND_SINT32;
        case Kind::sint64: return VESK_KIND_SINT64;
        case Kind::int32: return VESK_KIND_INT32;
        case Kind::int64: return VESK_KIND_INT64;
        case Kind::fixed32: return VESK_KIND_FIXED32;
        case Kind::fixed64: return VESK_KIND_FIXED64;
        case Kind::sfixed32: return VESK_KIND_SFIXED32;
        case Kind::sfixed64: return VESK_KIND_SFIXED64;
        case Kind::float32: return VESK_KIND_FLOAT;
        case Kind::float64: return VESK_KIND_DOUBLE;
        case Kind::enumeration: return VESK_KIND_ENUM;
        case Kind::strings: return VESK_KIND_STRING | VESK_KIND_REPEATED;
        case Kind::blobs: return VESK_KIND_BYTES | VESK_KIND_REPEATED;
        case Kind::repeated: break;  // follows from its elements
    }
    return 0;
}

template <class Message, std::size_t Index>
consteval std::uint16_t fact_of_field() {
    if constexpr (kind_of<Message, Index> == Kind::repeated) {
        return fact_of_kind(TagOf<Message, Index>::Scalar::kind) | VESK_KIND_REPEATED;
    } else {
        return fact_of_kind(kind_of<Message, Index>);
    }
}

template <class Message, std::size_t Index>
constexpr vesk_field place_field(Layout& layout) {
    constexpr Kind kind = kind_of<Message, Index>;
    vesk_field field{0, 0, tag_of<Message, Index>, 0, 0, Index, fact_of_field<Message, Index>()};
    if constexpr (kind == Kind::bytes) {
        field.offset = layout.place<std::uint8_t*>();
        field.size_offset = layout.place<std::uint64_t>();
    } else if constexpr (kind == Kind::list || kind == Kind::repeated || kind == Kind::strings || kind == Kind::blobs) {
        field.offset = layout.place<void*>();
        field.size_offset = layout.place<std::uint32_t>();
    } else {
        field.offset = layout.place<decltype(member_of_field<Message>(field_of<Message, Index>))>();
    }
    return field;
}

// ---- The table -----------------------------------------------------------------------------------------------------

template <std::size_t TypeCount, std::size_t FieldCount, std::size_t NumberCount, std::size_t NameSize>
struct FactsData {
    vesk_type types[TypeCount];
    vesk_field fields[FieldCount == 0 ? 1 : FieldCount];
    std::uint16_t by_number[NumberCount];
    char names[NameSize];
};

// Fields with higher numbers are looked for one by one.
inline constexpr std::uint32_t highest_number_in_table = 1023;

template <class Message>
consteval std::size_t number_count() {
    std::uint32_t highest = 0;
    if constexpr (field_count<Message> != 0) {
        for (const FieldFacts& field : facts_of<Message>.of_field) {
            const std::uint32_t number = field_number_of_tag(field.tag);
            if (number > highest && number <= highest_number_in_table) highest = number;
        }
    }
    return highest + 1;
}

template <class Message>
consteval std::size_t size_of_names() {
    std::size_t size = length_of(names<Message>.unit) + length_of(names<Message>.type) + 2;
    for (std::size_t index = 0; index < field_count<Message>; ++index)
        size += length_of(names<Message>.fields[index]) + 1;
    return size;
}

// Fills a table with the types of a list, of which those of other libraries come last.
template <class... Messages>
class FactsBuilder {
public:
    static constexpr std::size_t type_count = sizeof...(Messages);
    static constexpr std::size_t own_types = (... + !is_imported<Messages>);
    static constexpr std::size_t fields_in_all = (... + field_count<Messages>);
    static constexpr std::size_t numbers_in_all = (... + number_count<Messages>());
    static constexpr std::size_t names_in_all = (... + size_of_names<Messages>());
    using Data = FactsData<type_count, fields_in_all, numbers_in_all, names_in_all>;

    constexpr Data build() {
        (add_type<Messages>(), ...);
        return data_;
    }

private:
    static constexpr std::int32_t distance(std::size_t from, std::size_t to) {
        return static_cast<std::int32_t>(to) - static_cast<std::int32_t>(from);
    }
    static constexpr std::size_t type_at(std::size_t index) {
        return offsetof(Data, types) + index * sizeof(vesk_type);
    }
    static constexpr std::size_t field_at(std::size_t index) {
        return offsetof(Data, fields) + index * sizeof(vesk_field);
    }

    template <class Wanted>
    static constexpr std::size_t index_of() {
        const bool is_wanted[] = {std::is_same_v<Messages, Wanted>...};
        std::size_t index = 0;
        while (!is_wanted[index]) ++index;
        return index;
    }

    constexpr std::int32_t add_name(const char* name, std::size_t from) {
        const std::size_t at = offsetof(Data, names) + name_end_;
        for (; *name != '\0'; ++name) data_.names[name_end_++] = *name;
        data_.names[name_end_++] = '\0';
        return distance(from, at);
    }

    template <class Message>
    constexpr void add_type() {
        const std::size_t at = type_at(type_);
        const std::size_t numbers_at = offsetof(Data, by_number) + number_end_ * sizeof(std::uint16_t);
        vesk_type& type = data_.types[type_];
        type.size = sizeof(vesk_type);
        type.unit_at = add_name(names<Message>.unit, at);
        type.name_at = add_name(names<Message>.type, at);
        type.next_at = type_ + 1 < own_types ? distance(at, type_at(type_ + 1)) : 0;
        type.fields_at = distance(at, field_at(field_));
        type.by_number_at = distance(at, numbers_at);
        type.structure_size = sizeof(Message);
        type.alignment = alignof(Message);
        type.flags = is_imported<Message> ? VESK_TYPE_ELSEWHERE : 0;
        type.field_count = field_count<Message>;
        type.field_size = sizeof(vesk_field);
        if constexpr (!is_imported<Message>) {
            Layout layout;
            type.number_count = number_count<Message>();
            add_fields<Message>(layout, std::make_index_sequence<field_count<Message>>{});
            type.presence_offset = layout.place<decltype(Message::present)>();
        }
        number_end_ += number_count<Message>();
        ++type_;
    }

    template <class Message, std::size_t... Indices>
    constexpr void add_fields(Layout& layout, std::index_sequence<Indices...>) {
        (add_field<Message, Indices>(layout), ...);
    }

    template <class Message, std::size_t Index>
    constexpr void add_field(Layout& layout) {
        vesk_field& field = data_.fields[field_] = place_field<Message, Index>(layout);
        const std::size_t at = field_at(field_);
        field.name_at = add_name(names<Message>.fields[Index], at);
        if constexpr (kind_of<Message, Index> == Kind::message || kind_of<Message, Index> == Kind::list) {
            field.nested_at = distance(at, type_at(index_of<NestedOf<Message, Index>>()));
        }
        if (field_number_of_tag(field.tag) <= highest_number_in_table) {
            data_.by_number[number_end_ + field_number_of_tag(field.tag)] = Index + 1;
        } else {
            data_.types[type_].flags |= VESK_TYPE_SPARSE;
        }
        if (field.kind > VESK_KIND_LIST) data_.types[type_].flags |= VESK_TYPE_OTHER_KINDS;
        ++field_;
    }

    Data data_{};
    std::size_t type_ = 0;
    std::size_t field_ = 0;
    std::size_t number_end_ = 0;
    std::size_t name_end_ = 0;
};

// `Nothing` stands in front, so that a list can be written as one comma and type after the other.
struct Nothing {};

template <class, class... Messages>
consteval auto make_facts_table() {
    return FactsBuilder<Messages...>{}.build();
}

}  // namespace vesk
