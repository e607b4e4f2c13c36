#include "tools/vesk/differences.hpp"

namespace vesk::tool {
namespace {

// In the order of Row.
constexpr RowText rows[] = {
    {"A field whose number the type does not have", "keeps it, and writes it again after the known ones", "drops it",
     "differences.unknown_field_is_dropped"},
    {"A field whose number the type does not have, of wire type 1, 2 or 5, cut short at the end of the input or of a "
     "nested message",
     "refuses", "accepts; the message ends there", "differences.unknown_field_cut_short_is_accepted"},
    {"Field number 0", "refuses", "an unknown field like any other", "differences.field_number_0_is_unknown_field"},
    {"A group (wire types 3 and 4)",
     "keeps it as an unknown field, also under a known number; refuses more than 100 groups inside one another",
     "refuses: `VESK_UNKNOWN_WIRE_TYPE`, or `VESK_WRONG_WIRE_TYPE` under a known number",
     "differences.group_is_refused"},
    {"A known field with a wire type that is not its own", "keeps it as an unknown field",
     "refuses: `VESK_WRONG_WIRE_TYPE`", "differences.known_field_of_other_wire_type_is_refused"},
    {"A known field with a wire type that is not its own, directly after an element of the list of this number",
     "keeps it as an unknown field", "reads it as a length and an element",
     "differences.list_element_of_other_wire_type_is_read_as_element"},
    {"A list whose elements have another field between them", "joins the elements", "refuses: `VESK_MALFORMED`",
     "differences.list_in_two_runs_is_refused"},
    {"A nested message twice", "merges the second into the first",
     "the second replaces the first, whose blocks are lost", "differences.nested_message_twice_is_replaced"},
    {"A string twice", "keeps the last", "refuses: `VESK_MALFORMED`", "differences.string_twice_is_refused"},
    {"A bytes field twice", "keeps the last", "refuses: `VESK_MALFORMED`", "differences.bytes_twice_is_refused"},
    {"A string with a NUL inside", "keeps its length",
     "copies it whole, but it ends at the NUL for everyone who reads it, the encoder included",
     "differences.string_ends_at_embedded_nul"},
    {"A flag whose number has bits above the 32nd only", "true: 64 bits count", "false: 32 bits count",
     "differences.flag_is_read_from_32_bits"},
    {"A tag of more than 5 bytes", "refuses", "reads it; the low 32 bits count",
     "differences.tag_of_more_than_5_bytes_is_read"},
    {"A length of more than 5 bytes", "refuses", "reads it; the low 32 bits count",
     "differences.length_of_more_than_5_bytes_is_read"},
    {"A length of 5 bytes that says 4 GiB and more", "refuses", "the low 32 bits count",
     "differences.length_above_2_gib_keeps_its_low_32_bits"},
    {"A number of more than 10 bytes, also in an unknown field", "refuses", "reads it; the low 32 or 64 bits count",
     "differences.number_of_more_than_10_bytes_is_read"},
    {"A field of 2 GiB - 16 bytes to 4 GiB, all there",
     "refuses the length; cannot be given an input of 2 GiB, whose size is an `int`", "reads it",
     "differences.field_of_2_gib_is_read"},
};

}  // namespace

const RowText& text_of(Row row) { return rows[static_cast<std::size_t>(row)]; }

std::span<const RowText> all_rows() { return rows; }

}  // namespace vesk::tool
