// The four exported functions of a type by its structure, and calls of them as a test wants to write them.
#pragma once

#include <vesk/client_service.h>

#include <cstring>
#include <utility>

#include "all_types.hpp"  // made by CMake from the units' .symbols files: VESK_TEST_TYPES(X)
#include "tests/support/bytes.hpp"
#include "tests/support/ledger.hpp"

namespace vesk::test {

template <class T>
struct Api;

#define VESK_TEST_API(T)                                 \
    template <>                                          \
    struct Api<T> {                                      \
        static constexpr const char* name = #T;          \
        static constexpr auto encode = T##_encode_ext;   \
        static constexpr auto decode = T##_decode_ext;   \
        static constexpr auto duplicate = T##_duplicate; \
        static constexpr auto free = T##_free_ext;       \
    };
VESK_TEST_TYPES(VESK_TEST_API)
#undef VESK_TEST_API

template <class T>
std::uint64_t measured(const T& message, std::uint32_t flags = 0) {
    return Api<T>::encode(&message, nullptr, 0, nullptr, nullptr, flags);
}

// The encoding in a buffer of exactly its length. A result that differs from the measured length, or a byte stored
// behind the end, comes out as bytes that no test expects.
template <class T>
Bytes encoded(const T& message, std::uint32_t flags = 0) {
    const std::uint64_t length = measured(message, flags);
    Bytes buffer(length + 1, 0xEE);
    const std::uint64_t written = Api<T>::encode(&message, buffer.data(), length, nullptr, nullptr, flags);
    if (written != length || buffer[length] != 0xEE) return hex("DEADBEEF");
    buffer.resize(length);
    return buffer;
}

// A message with the ledger that owns its blocks: freed with the flags of its decode when it goes out of scope.
template <class T>
struct Decoded {
    explicit Decoded(Bytes input, std::uint32_t flags = 0) : bytes(std::move(input)), flags(flags) {
        std::memset(static_cast<void*>(&message), 0x5A,
                    sizeof message);  // raw storage: whatever stood there is overwritten
        code = Api<T>::decode(&message, bytes.data(), bytes.size(), Ledger::alloc, &ledger, flags);
    }
    ~Decoded() { Api<T>::free(&message, Ledger::release, &ledger, flags); }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    const T* operator->() const { return &message; }

    Bytes bytes;  // a message decoded by reference points in here
    std::uint32_t flags;
    Ledger ledger;
    T message;
    std::int32_t code;
};

// The code of a decode whose message is not looked at.
template <class T>
std::int32_t decode_code(const Bytes& input, std::uint32_t flags = 0) {
    return Decoded<T>(input, flags).code;
}

// True if no field is marked present.
template <class T>
bool has_no_presence(const T& message) {
    for (std::uint8_t byte : message.present) {
        if (byte != 0) return false;
    }
    return true;
}

}  // namespace vesk::test
