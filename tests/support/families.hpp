// What the tests of a family of types ask of one type after the other. Fields are named by number, presence bits by
// their constant.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>

#include "tests/support/messages.hpp"

namespace vesk::test {

// A flag may arrive as any number. It is stored as 1 and, since the encoder writes the byte that it finds, written
// as 1.
template <class T>
void expect_flags_become_1(std::initializer_list<std::uint32_t> numbers, std::uint64_t received) {
    for (const std::uint32_t number : numbers) {
        SCOPED_TRACE(std::string(Api<T>::name) + ", field " + std::to_string(number));
        EXPECT_EQ(to_hex(reencoded<T>(number_field(number, received))), to_hex(number_field(number, 1)));
        EXPECT_EQ(to_hex(reencoded<T>(number_field(number, 0))), to_hex(number_field(number, 0)));
    }
}

template <class T>
void expect_numbers_keep_32_bits(std::initializer_list<std::uint32_t> numbers) {
    for (const std::uint32_t number : numbers) {
        SCOPED_TRACE(std::string(Api<T>::name) + ", field " + std::to_string(number));
        EXPECT_EQ(to_hex(reencoded<T>(number_field(number, 0xFFFFFFFF))), to_hex(number_field(number, 0xFFFFFFFF)));
        EXPECT_EQ(to_hex(reencoded<T>(number_field(number, 0xFEDCBA9876543210))),
                  to_hex(number_field(number, 0x76543210)));
    }
}

template <class T>
void expect_numbers_keep_64_bits(std::initializer_list<std::uint32_t> numbers) {
    for (const std::uint32_t number : numbers) {
        SCOPED_TRACE(std::string(Api<T>::name) + ", field " + std::to_string(number));
        for (const std::uint64_t value :
             {(std::uint64_t{1} << 32) + 1, (std::uint64_t{1} << 40) + 1, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
            EXPECT_EQ(to_hex(reencoded<T>(number_field(number, value))), to_hex(number_field(number, value)));
        }
    }
}

// A string or bytes field may occur once, next to itself or not, the same or empty.
template <class T>
void expect_repetition_is_malformed(std::initializer_list<std::uint32_t> numbers) {
    constexpr std::uint32_t unknown = 100;
    for (const std::uint32_t number : numbers) {
        SCOPED_TRACE(std::string(Api<T>::name) + ", field " + std::to_string(number));
        EXPECT_EQ(decode_code<T>(text_field(number, "a")), VESK_OK);
        EXPECT_EQ(decode_code<T>(message(text_field(number, "a"), text_field(number, "a"))), VESK_MALFORMED);
        EXPECT_EQ(decode_code<T>(message(text_field(number, ""), text_field(number, "b"))), VESK_MALFORMED);
        EXPECT_EQ(decode_code<T>(message(text_field(number, "a"), number_field(unknown, 1), text_field(number, "b"))),
                  VESK_MALFORMED);
    }
}

template <class T>
void expect_null_is_not_written(std::initializer_list<unsigned> string_bits) {
    for (const unsigned bit : string_bits) {
        T message = {};
        VESK_MARK(&message, bit);
        EXPECT_EQ(to_hex(encoded(message)), "") << Api<T>::name << ", bit " << bit;
    }
}

// A nested message or identifier without content.
template <class T>
void expect_empty_is_written_only_if_present(unsigned bit, const char* tag_and_zero) {
    SCOPED_TRACE(std::string(Api<T>::name) + ", bit " + std::to_string(bit));
    T message = {};
    EXPECT_EQ(to_hex(encoded(message)), "");
    VESK_MARK(&message, bit);
    EXPECT_EQ(to_hex(encoded(message)), tag_and_zero);
    const Decoded<T> decoded(hex(tag_and_zero));
    EXPECT_EQ(decoded.code, VESK_OK);
    EXPECT_EQ(presence_of(decoded.message), presence_of(message));
}

}  // namespace vesk::test
