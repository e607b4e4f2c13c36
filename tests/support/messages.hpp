// Structures filled by hand, for tests that trust neither encoder nor decoder to make their messages.
#pragma once

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string>
#include <type_traits>

#include "tests/support/api.hpp"

namespace vesk::test {

// A string member's value. No function of the library writes through it.
inline char* literal(const char* characters) { return const_cast<char*>(characters); }

// A bytes member's data; `bytes` must outlive the message.
inline std::uint8_t* data_of(const Bytes& bytes) { return const_cast<std::uint8_t*>(bytes.data()); }

// A pointer that nothing may read through.
template <class T>
T* unreadable() {
    return reinterpret_cast<T*>(alignof(std::max_align_t));
}

// Raw storage, as a caller's stack leaves it.
template <class T>
T filled_with(std::uint8_t byte) {
    static_assert(std::is_trivially_copyable_v<T>);
    T message;
    std::memset(static_cast<void*>(&message), byte, sizeof message);
    return message;
}

// What one encoding call did: its result, and a buffer of `room` bytes, 0xEE where nothing was stored.
struct Output {
    std::uint64_t length;
    Bytes buffer;
    bool stayed_inside;  // nothing was stored behind the buffer
};

template <class T>
Output encode_into(const T& message, std::size_t room, std::uint32_t flags = 0) {
    constexpr std::size_t guard = 16;
    Output output{0, Bytes(room + guard, 0xEE), true};
    output.length = Api<T>::encode(&message, output.buffer.data(), room, nullptr, nullptr, flags);
    for (std::size_t i = room; i < room + guard; ++i) output.stayed_inside &= output.buffer[i] == 0xEE;
    output.buffer.resize(room);
    return output;
}

// The presence bytes, the first one first: "00 00 08".
template <class T>
std::string presence_of(const T& message) {
    return to_hex(Bytes(message.present, message.present + sizeof message.present));
}

// What a decoded input encodes to; bytes that no test expects if it is refused.
template <class T>
Bytes reencoded(const Bytes& input) {
    const Decoded<T> decoded(input);
    return decoded.code == VESK_OK ? encoded(decoded.message) : hex("DEADBEEF");
}

// What a ledger was asked.
inline Request asked_for(std::uint64_t size) { return {Request::What::alloc, size}; }
inline Request given_back(std::uint64_t size) { return {Request::What::release, size}; }

// A copy in storage that was filled with `background`, of which some allocations may fail. Freed at the end.
template <class T>
struct Copy {
    explicit Copy(const T& source, std::initializer_list<std::uint64_t> failing_requests = {},
                  std::uint8_t background = 0x5A)
        : message(filled_with<T>(background)) {
        for (std::uint64_t n : failing_requests) ledger.fail_request(n);
        code = Api<T>::duplicate(&message, &source, Ledger::alloc, &ledger);
    }
    ~Copy() { Api<T>::free(&message, Ledger::release, &ledger, 0); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    const T* operator->() const { return &message; }

    Ledger ledger;
    T message;
    std::int32_t code;
};

// A whole bytes field.
inline Bytes bytes_field(std::uint32_t number, const Bytes& content) { return message_field(number, content); }

}  // namespace vesk::test
