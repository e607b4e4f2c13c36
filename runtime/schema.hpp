// The words a field list is written in, what a message type's field list says, and the checks that the compiler makes
// of it.
//
//     template <> inline constexpr auto schema<vesk_T> = fields(
//         field<1>(&vesk_T::name),
//         bytes<2>(&vesk_T::image, &vesk_T::image_length),
//         list<7>(&vesk_T::part_list, &vesk_T::part_list_count));
//
// The kind of a field follows from the type of its member, its presence bit from its place in the list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "runtime/wire.hpp"

namespace vesk {

enum class Kind { uint32, uint64, boolean, string, bytes, message, list };

// ---- The words -----------------------------------------------------------------------------------------------------

template <std::uint32_t Number, class Message, class Member>
struct Field {
    static constexpr std::uint32_t number = Number;
    Member Message::*member;
};

template <std::uint32_t Number, class Message>
struct BytesField {
    static constexpr std::uint32_t number = Number;
    std::uint8_t* Message::*data;
    std::uint64_t Message::*length;
};

template <std::uint32_t Number, class Message, class Element>
struct ListField {
    static constexpr std::uint32_t number = Number;
    Element* Message::*array;
    std::uint32_t Message::*count;
};

template <std::uint32_t Number, class Message, class Member>
constexpr Field<Number, Message, Member> field(Member Message::*member) {
    return {member};
}

template <std::uint32_t Number, class Message>
constexpr BytesField<Number, Message> bytes(std::uint8_t* Message::*data, std::uint64_t Message::*length) {
    return {data, length};
}

template <std::uint32_t Number, class Message, class Element>
constexpr ListField<Number, Message, Element> list(Element* Message::*array, std::uint32_t Message::*count) {
    return {array, count};
}

template <std::size_t Index, class AnyField>
struct Slot {
    AnyField value;
};

template <class Indices, class... AnyFields>
struct FieldList;

template <std::size_t... Indices, class... AnyFields>
struct FieldList<std::index_sequence<Indices...>, AnyFields...> : Slot<Indices, AnyFields>... {
    static constexpr std::size_t count = sizeof...(AnyFields);
};

template <class... AnyFields>
constexpr FieldList<std::index_sequence_for<AnyFields...>, AnyFields...> fields(AnyFields... list) {
    return {{list}...};
}

// A message type's field list; specialised by the generated headers.
template <class Message>
inline constexpr FieldList<std::index_sequence<>> schema{};

// The exported functions of a message type that belongs to another library. The generated headers specialise
// `imported` for such a type.
template <class Message>
struct ImportedFunctions {
    std::uint64_t (*encode)(const Message*, void*, std::uint64_t, vesk_segment*, std::uint32_t*, std::uint32_t);
    std::int32_t (*decode)(Message*, const void*, std::uint64_t, vesk_alloc, void*, std::uint32_t);
    std::int32_t (*duplicate)(Message*, const Message*, vesk_alloc, void*);
    void (*release)(Message*, vesk_release, void*, std::uint32_t);
};

struct NotImported {};

template <class Message>
inline constexpr NotImported imported{};

template <class Message>
inline constexpr bool is_imported = !std::is_same_v<decltype(imported<Message>), const NotImported>;

// ---- What a field list says ----------------------------------------------------------------------------------------

template <class Message>
inline constexpr std::size_t field_count = decltype(schema<Message>)::count;

template <std::size_t Index, class AnyField>
constexpr const AnyField& get_slot(const Slot<Index, AnyField>& slot) {
    return slot.value;
}

template <class Message, std::size_t Index>
inline constexpr auto field_of = get_slot<Index>(schema<Message>);

template <class Message, std::uint32_t Number, class Member>
constexpr Kind kind_of_field(const Field<Number, Message, Member>&) {
    return Kind::message;
}
template <class Message, std::uint32_t Number>
constexpr Kind kind_of_field(const Field<Number, Message, std::uint32_t>&) {
    return Kind::uint32;
}
template <class Message, std::uint32_t Number>
constexpr Kind kind_of_field(const Field<Number, Message, std::uint64_t>&) {
    return Kind::uint64;
}
template <class Message, std::uint32_t Number>
constexpr Kind kind_of_field(const Field<Number, Message, std::uint8_t>&) {
    return Kind::boolean;
}
template <class Message, std::uint32_t Number>
constexpr Kind kind_of_field(const Field<Number, Message, char*>&) {
    return Kind::string;
}
template <class Message, std::uint32_t Number>
constexpr Kind kind_of_field(const BytesField<Number, Message>&) {
    return Kind::bytes;
}
template <class Message, std::uint32_t Number, class Element>
constexpr Kind kind_of_field(const ListField<Number, Message, Element>&) {
    return Kind::list;
}

template <class Message, std::size_t Index>
inline constexpr Kind kind_of = kind_of_field<Message>(field_of<Message, Index>);

template <class Message, std::size_t Index>
inline constexpr std::uint32_t number_of = decltype(field_of<Message, Index>)::number;

constexpr WireType wire_type_of_kind(Kind kind) {
    return kind == Kind::uint32 || kind == Kind::uint64 || kind == Kind::boolean ? varint_type : length_type;
}

template <class Message, std::size_t Index>
inline constexpr std::uint32_t tag_of = make_tag(number_of<Message, Index>, wire_type_of_kind(kind_of<Message, Index>));

// ---- Presence bits -------------------------------------------------------------------------------------------------

constexpr std::uint8_t presence_mask(std::size_t index) { return static_cast<std::uint8_t>(1u << index % 8); }

template <class Message, std::size_t Index>
bool is_present(const Message& message) {
    return (message.present[Index / 8] & presence_mask(Index)) != 0;
}

template <class Message, std::size_t Index>
void mark_present(Message& message) {
    message.present[Index / 8] |= presence_mask(Index);
}

template <class Message, std::size_t Index>
void mark_absent(Message& message) {
    message.present[Index / 8] &= static_cast<std::uint8_t>(~presence_mask(Index));
}

}  // namespace vesk
