// A foreign_all that the second implementation has decoded, and its encoding.
#pragma once

#include <utility>

#include "tests/foreign_kinds/messages.hpp"
#include "tests/support/bytes.hpp"
#include "tests/support/ledger.hpp"

namespace vesk::test {

struct Decoded {
    explicit Decoded(Bytes bytes, std::uint32_t decode_flags = 0) : flags(decode_flags), input(std::move(bytes)) {
        code =
            interpreter::decode(foreign_table(0), &message, input.data(), input.size(), Ledger::alloc, &ledger, flags);
    }
    ~Decoded() {
        interpreter::release(foreign_table(0), &message, Ledger::release, &ledger, flags);
        ledger.forget();  // what repeated nested messages have lost
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    std::uint32_t flags;
    Bytes input;
    foreign_all message;
    Ledger ledger;
    std::int32_t code;
};

inline Bytes encoded(const void* message) {
    Bytes bytes(interpreter::encode(foreign_table(0), message, nullptr, 0, nullptr, nullptr, 0));
    interpreter::encode(foreign_table(0), message, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

}  // namespace vesk::test
