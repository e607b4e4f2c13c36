// What separates the library from protobuf when both read the same bytes, as a list of single differences, and a
// decoder in which each of them is a switch. With none it is to read as protobuf does, with all of them as the library
// does. Where it does, the list is complete: nothing else separates the two.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>

#include "tests/interop/peers.hpp"

namespace vesk::test {

// Wire types that the library has not.
inline constexpr std::uint32_t group_start = 3;
inline constexpr std::uint32_t group_end = 4;

// What the library does and protobuf does not. Each is a row of docs/differences.md and a test of its name.
#define VESK_READING_DIFFERENCES(X)                       \
    X(unknown_field_is_dropped)                           \
    X(unknown_field_cut_short_is_accepted)                \
    X(field_number_0_is_unknown_field)                    \
    X(group_is_refused)                                   \
    X(known_field_of_other_wire_type_is_refused)          \
    X(list_element_of_other_wire_type_is_read_as_element) \
    X(list_in_two_runs_is_refused)                        \
    X(nested_message_twice_is_replaced)                   \
    X(string_twice_is_refused)                            \
    X(bytes_twice_is_refused)                             \
    X(string_ends_at_embedded_nul)                        \
    X(flag_is_read_from_32_bits)                          \
    X(tag_of_more_than_5_bytes_is_read)                   \
    X(length_of_more_than_5_bytes_is_read)                \
    X(length_above_2_gib_keeps_its_low_32_bits)           \
    X(number_of_more_than_10_bytes_is_read)

enum class Difference {
#define VESK_TEST_ENUMERATOR(name) name,
    VESK_READING_DIFFERENCES(VESK_TEST_ENUMERATOR)
#undef VESK_TEST_ENUMERATOR
};

inline constexpr const char* difference_names[] = {
#define VESK_TEST_NAME(name) #name,
    VESK_READING_DIFFERENCES(VESK_TEST_NAME)
#undef VESK_TEST_NAME
};
inline constexpr std::size_t difference_count = std::size(difference_names);

// The differences that are switched on.
class Dialect {
public:
    static Dialect of_protobuf() { return Dialect(); }
    static Dialect of_library() {
        Dialect dialect;
        dialect.on_.set();
        return dialect;
    }

    bool has(Difference difference) const { return on_[static_cast<std::size_t>(difference)]; }
    void add(Difference difference) { on_.set(static_cast<std::size_t>(difference)); }

private:
    std::bitset<difference_count> on_;
};

Reading read_in(const Dialect& dialect, const TypeInfo& type, const Bytes& input);

}  // namespace vesk::test
