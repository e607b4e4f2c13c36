// Where the library and a general protobuf parser read the same bytes differently: the rows of docs/differences.md that
// input can meet.
#pragma once

#include <cstddef>
#include <span>

namespace vesk::tool {

enum class Row {
    unknown_field_is_dropped,
    unknown_field_cut_short_is_accepted,
    field_number_0_is_unknown_field,
    group_is_refused,
    known_field_of_other_wire_type_is_refused,
    list_element_of_other_wire_type_is_read_as_element,
    list_in_two_runs_is_refused,
    nested_message_twice_is_replaced,
    string_twice_is_refused,
    bytes_twice_is_refused,
    string_ends_at_embedded_nul,
    flag_is_read_from_32_bits,
    tag_of_more_than_5_bytes_is_read,
    length_of_more_than_5_bytes_is_read,
    length_above_2_gib_keeps_its_low_32_bits,
    number_of_more_than_10_bytes_is_read,
    field_of_2_gib_is_read,
};

// The columns of a row, word for word.
struct RowText {
    const char* what;      // arrives
    const char* protobuf;  // does with it
    const char* library;   // does with it
    const char* test;      // that proves it: "differences." and the row's name
};

const RowText& text_of(Row row);
std::span<const RowText> all_rows();

}  // namespace vesk::tool
