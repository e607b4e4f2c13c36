// The words a field list is written in, what a message type's field list says, and the checks that the compiler makes
// of it.
//
//     template <> inline constexpr auto schema<vesk_T> = fields(
//         field<1>(&vesk_T::name),
//         bytes<2>(&vesk_T::image, &vesk_T::image_length),
//         list<7>(&vesk_T::part_list, &vesk_T::part_list_count));
//
// The kind of a field follows from the type of its member, its presence bit from its place in the list. Messages of
// others have more kinds, of which several may have one type of member:
//
//         scalar<8, Sint32>(&T::offset),
//         repeated<9, Float>(&T::samples, &T::samples_count),   one by one; packed<9, Float>(...): packed
//         strings<10>(&T::names, &T::names_count),
//         blobs<11>(&T::images, &T::images_count),
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "runtime/kinds.hpp"

namespace vesk {

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

template <std::uint32_t Number, class Message, class Scalar>
struct ScalarField {
    static constexpr std::uint32_t number = Number;
    typename Scalar::Member Message::*member;
};

template <std::uint32_t Number, class Message, class Scalar, bool Packed>
struct RepeatedField {
    static constexpr std::uint32_t number = Number;
    typename Scalar::Member* Message::*array;
    std::uint32_t Message::*count;
};

// Of char * or vesk_bytes.
template <std::uint32_t Number, class Message, class Element>
struct BlocksField {
    static constexpr std::uint32_t number = Number;
    Element* Message::*array;
    std::uint32_t Message::*count;
};

template <std::uint32_t Number, class Message, class Member>
consteval Field<Number, Message, Member> field(Member Message::*member) {
    return {member};
}

template <std::uint32_t Number, class Message>
consteval BytesField<Number, Message> bytes(std::uint8_t* Message::*data, std::uint64_t Message::*length) {
    return {data, length};
}

template <std::uint32_t Number, class Message, class Element>
consteval ListField<Number, Message, Element> list(Element* Message::*array, std::uint32_t Message::*count) {
    return {array, count};
}

template <std::uint32_t Number, class Scalar, class Message>
consteval ScalarField<Number, Message, Scalar> scalar(typename Scalar::Member Message::*member) {
    return {member};
}

template <std::uint32_t Number, class Scalar, class Message>
consteval RepeatedField<Number, Message, Scalar, false> repeated(typename Scalar::Member* Message::*array,
                                                                 std::uint32_t Message::*count) {
    return {array, count};
}

template <std::uint32_t Number, class Scalar, class Message>
consteval RepeatedField<Number, Message, Scalar, true> packed(typename Scalar::Member* Message::*array,
                                                              std::uint32_t Message::*count) {
    return {array, count};
}

template <std::uint32_t Number, class Message>
consteval BlocksField<Number, Message, char*> strings(char** Message::*array, std::uint32_t Message::*count) {
    return {array, count};
}

template <std::uint32_t Number, class Message>
consteval BlocksField<Number, Message, vesk_bytes> blobs(vesk_bytes* Message::*array, std::uint32_t Message::*count) {
    return {array, count};
}

template <std::size_t Index, class Value>
struct Slot {
    [[no_unique_address]] Value value;
};

template <class Indices, class... AnyFields>
struct FieldList;

template <std::size_t... Indices, class... AnyFields>
struct FieldList<std::index_sequence<Indices...>, AnyFields...> : Slot<Indices, AnyFields>... {
    static constexpr std::size_t count = sizeof...(AnyFields);
};

template <class... AnyFields>
consteval FieldList<std::index_sequence_for<AnyFields...>, AnyFields...> fields(AnyFields... list) {
    return {{list}...};
}

// A message type's field list; specialised by the generated headers.
struct NoFieldList : FieldList<std::index_sequence<>> {};
template <class Message>
inline constexpr NoFieldList schema{};

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

template <std::size_t Index, class Value>
consteval const Value& get_slot(const Slot<Index, Value>& slot) {
    return slot.value;
}

template <class Message, std::size_t Index>
inline constexpr auto field_of = get_slot<Index>(schema<Message>);

template <class Message, std::uint32_t Number, class Member>
consteval Kind kind_of_field(const Field<Number, Message, Member>&) {
    return ScalarOfMember<Member>::kind;
}
template <class Message, std::uint32_t Number>
consteval Kind kind_of_field(const Field<Number, Message, char*>&) {
    return Kind::string;
}
template <class Message, std::uint32_t Number>
consteval Kind kind_of_field(const BytesField<Number, Message>&) {
    return Kind::bytes;
}
template <class Message, std::uint32_t Number, class Element>
consteval Kind kind_of_field(const ListField<Number, Message, Element>&) {
    return Kind::list;
}
template <class Message, std::uint32_t Number, class Scalar>
consteval Kind kind_of_field(const ScalarField<Number, Message, Scalar>&) {
    return Scalar::kind;
}
template <class Message, std::uint32_t Number, class Scalar, bool Packed>
consteval Kind kind_of_field(const RepeatedField<Number, Message, Scalar, Packed>&) {
    return Kind::repeated;
}
template <class Message, std::uint32_t Number>
consteval Kind kind_of_field(const BlocksField<Number, Message, char*>&) {
    return Kind::strings;
}
template <class Message, std::uint32_t Number>
consteval Kind kind_of_field(const BlocksField<Number, Message, vesk_bytes>&) {
    return Kind::blobs;
}

template <class Message, std::size_t Index>
inline constexpr Kind kind_of = kind_of_field<Message>(field_of<Message, Index>);

template <class Message, std::size_t Index>
inline constexpr std::uint32_t number_of = decltype(field_of<Message, Index>)::number;

template <class Message, std::uint32_t Number, class Member>
Member member_of_field(const Field<Number, Message, Member>&);
template <class Message, std::uint32_t Number>
void member_of_field(const BytesField<Number, Message>&);
template <class Message, std::uint32_t Number, class Element>
Element member_of_field(const ListField<Number, Message, Element>&);
template <class Message, std::uint32_t Number, class Scalar>
typename Scalar::Member member_of_field(const ScalarField<Number, Message, Scalar>&);
template <class Message, std::uint32_t Number, class Scalar, bool Packed>
typename Scalar::Member member_of_field(const RepeatedField<Number, Message, Scalar, Packed>&);
template <class Message, std::uint32_t Number, class Element>
Element member_of_field(const BlocksField<Number, Message, Element>&);

// The message type of a nested field, or of a list's elements; the type of any other field's member or elements.
template <class Message, std::size_t Index>
using NestedOf = decltype(member_of_field<Message>(field_of<Message, Index>));

template <class Message, std::uint32_t Number, class Member>
ScalarOfMember<Member> scalar_of_field(const Field<Number, Message, Member>&);
template <class Message, std::uint32_t Number, class Scalar>
Scalar scalar_of_field(const ScalarField<Number, Message, Scalar>&);
template <class Message>
NoScalar scalar_of_field(const auto&);

// The structure of a scalar field's kind; one that says so for a field of another kind.
template <class Message, std::size_t Index>
using ScalarOf = decltype(scalar_of_field<Message>(field_of<Message, Index>));

template <class Message, std::size_t Index>
inline constexpr bool is_scalar = ScalarOf<Message, Index>::longest != 0;

// A field is encoded with the one tag, and decoded with either.
template <std::uint32_t Tag, std::uint32_t OtherTag = Tag>
struct FieldTag {
    static constexpr std::uint32_t tag = Tag;
    static constexpr std::uint32_t other_tag = OtherTag;
};

template <std::uint32_t Number, class OfScalar, bool Packed>
struct RepeatedTag : FieldTag<make_tag(Number, Packed ? length_type : OfScalar::wire_type),
                              make_tag(Number, Packed ? OfScalar::wire_type : length_type)> {
    using Scalar = OfScalar;
    static constexpr bool is_packed = Packed;
};

template <class Message, std::uint32_t Number, class Scalar, bool Packed>
RepeatedTag<Number, Scalar, Packed> tag_of_field(const RepeatedField<Number, Message, Scalar, Packed>&);
template <class Message, class AnyField>
FieldTag<make_tag(AnyField::number, decltype(scalar_of_field<Message>(AnyField{}))::wire_type)> tag_of_field(
    const AnyField&);

template <class Message, std::size_t Index>
using TagOf = decltype(tag_of_field<Message>(field_of<Message, Index>));

template <class Message, std::size_t Index>
inline constexpr std::uint32_t tag_of = TagOf<Message, Index>::tag;

// The value that a scalar field has on the wire.
template <class Message, std::size_t Index>
VESK_INLINE auto wire_value(const Message& message) {
    return wire_word<ScalarOf<Message, Index>>(message.*field_of<Message, Index>.member);
}

// ---- Ranges of fields ----------------------------------------------------------------------------------------------

struct FieldFacts {
    Kind kind;
    std::uint32_t tag;
    std::uint64_t longest;  // bytes that a scalar takes on the wire, with its tag; 0 for every other kind
};

template <std::size_t Count>
struct FactsTable {
    FieldFacts of_field[Count == 0 ? 1 : Count];
};

template <class Message, std::size_t... Indices>
consteval FactsTable<sizeof...(Indices)> make_facts(std::index_sequence<Indices...>) {
    return {
        {{kind_of<Message, Indices>, tag_of<Message, Indices>,
          is_scalar<Message, Indices> ? measure_varint(tag_of<Message, Indices>) + ScalarOf<Message, Indices>::longest
                                      : 0}...}};
}

template <class Message>
inline constexpr auto facts_of = make_facts<Message>(std::make_index_sequence<field_count<Message>>{});

// A run: scalars one after another. One past the last of the run that begins with `first`, or `first` itself.
template <class Message>
consteval std::size_t end_of_run(std::size_t first) {
    while (first < field_count<Message> && facts_of<Message>.of_field[first].longest != 0) ++first;
    return first;
}

// The presence bits of the fields First to Last - 1.
template <std::size_t First, std::size_t Last>
inline constexpr std::uint64_t presence_bits = (UINT64_MAX >> (64 - (Last - First))) << First;

// The most bytes that the scalars among the fields First to Last - 1 take on the wire.
template <class Message, std::size_t First, std::size_t Last>
consteval std::uint64_t longest_run() {
    std::uint64_t longest = 0;
    for (std::size_t index = First; index < Last; ++index) longest += facts_of<Message>.of_field[index].longest;
    return longest;
}

template <class Message>
consteval bool is_small_message() {
    if constexpr (is_imported<Message>) {
        return false;
    } else {
        constexpr std::size_t count = field_count<Message>;
        return end_of_run<Message>(0) == count && longest_run<Message, 0, count>() < 0x80;
    }
}

// A small message has scalars alone, and its length always takes one byte.
template <class Message>
inline constexpr bool is_small = is_small_message<Message>();

// True for a message that owns nothing, nor does anything in it, and that has nothing imported in it: a copy of the
// structure is a copy of the message.
template <class Message, std::size_t Index = 0>
consteval bool is_plain() {
    if constexpr (is_imported<Message>) {
        return false;
    } else if constexpr (Index == field_count<Message>) {
        return true;
    } else if constexpr (is_scalar<Message, Index>) {
        return is_plain<Message, Index + 1>();
    } else if constexpr (kind_of<Message, Index> == Kind::message) {
        return is_plain<NestedOf<Message, Index>>() && is_plain<Message, Index + 1>();
    } else {
        return false;
    }
}

// ---- Presence bits -------------------------------------------------------------------------------------------------

constexpr std::uint8_t presence_mask(std::size_t index) { return static_cast<std::uint8_t>(1u << index % 8); }

template <class Message, std::size_t Index>
bool is_present(const Message& message) {
    return (message.present[Index / 8] & presence_mask(Index)) != 0;
}

// All presence bits of a message, field Index's being bit Index. What stands above them means nothing.
template <class Message>
inline std::uint64_t load_presence(const Message& message) {
    constexpr std::size_t offset = offsetof(Message, present);
    constexpr std::size_t size = sizeof message.present;
    // One load, which may take in the padding after them.
    using Word = std::conditional_t<
        size == 1, std::uint8_t,
        std::conditional_t<size == 2, std::uint16_t, std::conditional_t<(size <= 4), std::uint32_t, std::uint64_t>>>;
    std::uint64_t presence = 0;
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && offset + sizeof(Word) <= sizeof(Message)) {
        Word word;
        __builtin_memcpy(&word, reinterpret_cast<const char*>(&message) + offset, sizeof word);
        presence = word;
    } else {
        for (std::size_t i = 0; i < size; ++i) presence |= std::uint64_t{message.present[i]} << 8 * i;
    }
    return presence;
}

template <class Message>
inline void store_presence(Message& message, std::uint64_t presence) {
    for (std::size_t i = 0; i < sizeof message.present; ++i) {
        message.present[i] = static_cast<std::uint8_t>(presence >> 8 * i);
    }
}

template <std::size_t Index>
inline bool has_bit(std::uint64_t presence) {
    return (presence >> Index & 1) != 0;
}

template <class Message, std::size_t Index>
void mark_absent(Message& message) {
    message.present[Index / 8] &= static_cast<std::uint8_t>(~presence_mask(Index));
}

}  // namespace vesk
