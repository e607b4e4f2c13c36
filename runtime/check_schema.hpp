// What the compiler refuses in a field list: a missing member, two members swapped, a number used twice, presence bytes
// that do not fit. Each refusal has a file in tests/must_not_compile/.
#pragma once

#include <type_traits>

#include "runtime/schema.hpp"

namespace vesk {

// Converts to `Member` and to nothing else, so that a list of these spells out the members of a structure.
template <class Member>
struct Exactly {
    template <class Other>
    requires std::is_same_v<Member, Other>
    operator Other() const;
};

template <class... Members>
struct MemberList {};

template <class... Left, class... Right>
MemberList<Left..., Right...> operator+(MemberList<Left...>, MemberList<Right...>);

template <std::uint32_t Number, class Message, class Member>
MemberList<Member> members_of(const Field<Number, Message, Member>&);
template <std::uint32_t Number, class Message>
MemberList<std::uint8_t*, std::uint64_t> members_of(const BytesField<Number, Message>&);
template <std::uint32_t Number, class Message, class Element>
MemberList<Element*, std::uint32_t> members_of(const ListField<Number, Message, Element>&);

template <std::uint32_t Number, class Message, class Scalar>
MemberList<typename Scalar::Member> members_of(const ScalarField<Number, Message, Scalar>&);
template <std::uint32_t Number, class Message, class Scalar, bool Packed>
MemberList<typename Scalar::Member*, std::uint32_t> members_of(const RepeatedField<Number, Message, Scalar, Packed>&);
template <std::uint32_t Number, class Message, class Element>
MemberList<Element*, std::uint32_t> members_of(const BlocksField<Number, Message, Element>&);

template <class Message, class... Members>
consteval bool is_made_of(MemberList<Members...>) {
    return requires { Message{Exactly<Members>{}...}; };
}

// Presence bytes are initialised one by one, so they count as members here.
template <std::size_t... Indices>
MemberList<decltype(static_cast<void>(Indices), std::uint8_t{})...> presence_members(std::index_sequence<Indices...>);

// True if the structure has the members of the field list, of the same types in the same order, then the presence
// bytes, and nothing else.
template <class Message, std::size_t... Indices>
consteval bool has_exactly_the_members(std::index_sequence<Indices...>) {
    using Presence = decltype(presence_members(std::make_index_sequence<sizeof(Message::present)>{}));
    using Listed = decltype((MemberList<>{} + ... + decltype(members_of(field_of<Message, Indices>)){}) + Presence{});
    using OneMore = decltype(Listed{} + MemberList<std::uint8_t>{});
    return is_made_of<Message>(Listed{}) && !is_made_of<Message>(OneMore{});
}

template <std::size_t Count>
consteval bool are_distinct(const std::uint32_t (&numbers)[Count]) {
    for (std::size_t i = 1; i < Count; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (numbers[i] == numbers[j]) return false;
        }
    }
    return true;
}

template <class Message, std::size_t... Indices>
consteval bool has_distinct_numbers(std::index_sequence<Indices...>) {
    return are_distinct({0, number_of<Message, Indices>...});  // no field has the number 0
}

// clang cannot compare the addresses of two members while compiling; there a test compares them, for every type.
#if !defined(__clang__)
template <std::uint32_t Number, class Message, class Member, class Visitor>
consteval void visit_members(const Message& message, const Field<Number, Message, Member>& field, Visitor& visit) {
    visit(&(message.*field.member));
}
template <std::uint32_t Number, class Message, class Visitor>
consteval void visit_members(const Message& message, const BytesField<Number, Message>& field, Visitor& visit) {
    visit(&(message.*field.data));
    visit(&(message.*field.length));
}
template <std::uint32_t Number, class Message, class Element, class Visitor>
consteval void visit_members(const Message& message, const ListField<Number, Message, Element>& field, Visitor& visit) {
    visit(&(message.*field.array));
    visit(&(message.*field.count));
}

template <std::uint32_t Number, class Message, class Scalar, class Visitor>
consteval void visit_members(const Message& message, const ScalarField<Number, Message, Scalar>& field,
                             Visitor& visit) {
    visit(&(message.*field.member));
}
template <std::uint32_t Number, class Message, class Scalar, bool Packed, class Visitor>
consteval void visit_members(const Message& message, const RepeatedField<Number, Message, Scalar, Packed>& field,
                             Visitor& visit) {
    visit(&(message.*field.array));
    visit(&(message.*field.count));
}
template <std::uint32_t Number, class Message, class Element, class Visitor>
consteval void visit_members(const Message& message, const BlocksField<Number, Message, Element>& field,
                             Visitor& visit) {
    visit(&(message.*field.array));
    visit(&(message.*field.count));
}

template <class Message, std::size_t... Indices>
consteval bool is_in_member_order(std::index_sequence<Indices...>) {
    [[maybe_unused]] constexpr Message message{};
    const void* previous = nullptr;
    bool ascending = true;
    [[maybe_unused]] auto visit = [&](const void* member) {
        ascending = ascending && (previous == nullptr || previous < member);
        previous = member;
    };
    (visit_members(message, field_of<Message, Indices>, visit), ...);
    return ascending;
}
#else
template <class Message, std::size_t... Indices>
consteval bool is_in_member_order(std::index_sequence<Indices...>) {
    return true;
}
#endif

// A structure has a byte of them even where it has no field: C knows no empty array.
template <class Message>
inline constexpr std::size_t presence_size = field_count<Message> == 0 ? 1 : (field_count<Message> + 7) / 8;

template <class Message>
consteval bool check_schema() {
    constexpr std::make_index_sequence<field_count<Message>> all;
    static_assert(!std::is_same_v<decltype(schema<Message>), const NoFieldList>, "the message type has no field list");
    static_assert(field_count<Message> <= 64, "the message type has more fields than a word has presence bits");
    static_assert(sizeof(Message::present) == presence_size<Message>,
                  "the presence bytes do not fit the number of fields");
    static_assert(has_distinct_numbers<Message>(all), "a field number is used twice");
    static_assert(has_exactly_the_members<Message>(all),
                  "the field list does not name the structure's members, each once and in order");
    static_assert(is_in_member_order<Message>(all), "the field list names members out of order");
    return true;
}

}  // namespace vesk
