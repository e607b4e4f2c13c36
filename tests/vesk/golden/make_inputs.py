#!/usr/bin/env python3
"""Makes inputs.txt: name, type and bytes in hexadecimal of each input whose outputs stand in this folder.

    make_inputs.py >inputs.txt

Valid ones, and some that are refused, are those of tests/golden; damaged ones are made of these by chance, the same on
every machine; hostile ones stand below. After a change remake the outputs as well: see golden_test.py.
"""

import pathlib
import random

GOLDEN = pathlib.Path(__file__).resolve().parents[2] / "golden"
LONG = ["eeprom_data", "fru_common_attribute", "inv_policy", "memory_data", "pem_data", "sensor_data"]  # shown in full
MOST = 48  # bytes of the others
DAMAGED = 80

HOSTILE = [
    # Varints: longer than need be, at the edges of 32 and 64 bits, cut short.
    ("number_of_5_bytes", "pem_data", "18 80 80 80 80 00"),
    ("number_of_10_bytes", "pem_data", "18 ff ff ff ff ff ff ff ff ff 01"),
    ("number_of_11_bytes", "pem_data", "18 81 80 80 80 80 80 80 80 80 80 00"),
    ("number_of_40_bytes_in_unknown_field", "pem_data", "e0 03" + " 80" * 39 + " 00"),
    ("number_cut_short", "pem_data", "18 01 20 ff ff"),
    ("unknown_number_cut_short", "pem_data", "18 01 e0 03 80"),
    ("tag_of_5_bytes", "pem_data", "98 80 80 80 00 07"),
    ("tag_of_6_bytes", "pem_data", "98 80 80 80 80 00 07"),
    ("tag_with_bits_above_the_32nd", "pem_data", "98 80 80 80 70 07"),
    ("tag_cut_short", "pem_data", "18 01 98"),
    ("tag_cut_short_in_nested_message", "pem_data", "0a 03 20 01 80 18 01"),
    ("tag_cut_short_after_element", "resp_inv_data", "5a 00 80"),
    ("field_number_0", "pem_data", "00 01 18 05"),
    ("highest_field_number", "pem_data", "f8 ff ff ff 0f 01"),
    ("flag_of_2", "sensor_data", "78 02"),
    ("flag_with_bits_above_the_32nd", "sensor_data", "78 80 80 80 80 80 20"),
    # Lengths.
    ("length_of_6_bytes", "led_data", "2a 81 80 80 80 80 00 41"),
    ("length_of_4_gib_and_1", "led_data", "2a 81 80 80 80 10 41"),
    ("length_of_2_gib", "led_data", "2a f0 ff ff ff 07 41"),
    ("length_of_4_gib_less_1", "led_data", "18 01 2a ff ff ff ff 0f 41"),
    ("length_cut_short", "led_data", "18 01 2a 80"),
    ("length_too_long_by_1", "led_data", "2a 03 41 42"),
    ("length_too_long_in_nested_message", "pem_data", "0a 04 12 03 41 42 18 01"),
    ("nested_message_too_long", "pem_data", "18 01 0a 05 00"),
    ("unknown_string_cut_short", "pem_data", "18 01 e2 03 7f 41"),
    ("unknown_string_cut_short_in_nested_message", "pem_data", "0a 04 e2 03 7f 41 18 01"),
    ("unknown_64_bits_cut_short", "pem_data", "e1 03 01 02 03"),
    ("unknown_32_bits_cut_short", "pem_data", "e5 03 01"),
    ("unknown_of_every_wire_type", "pem_data", "e0 03 01 e1 03 01 02 03 04 05 06 07 08 e2 03 02 41 42 e5 03 01 02 03 04"),
    # Wire types.
    ("group", "pem_data", "18 01 e3 03 18 01 e4 03"),
    ("group_under_known_number", "pem_data", "23 24"),
    ("end_of_group", "pem_data", "e4 03"),
    ("wire_type_6", "pem_data", "18 01 e6 03 00"),
    ("wire_type_7", "pem_data", "18 01 e7 03 00"),
    ("wire_type_7_under_known_number", "pem_data", "1f"),
    ("string_for_number", "pem_data", "1a 01 41"),
    ("number_for_string", "led_data", "28 41"),
    ("64_bits_for_number", "pem_data", "19 01 02 03 04 05 06 07 08"),
    ("number_for_first_element", "resp_inv_data", "58 01"),
    ("wrong_wire_type_in_element", "resp_inv_data", "5a 02 18 01 5a 03 1a 01 41 5a 00"),
    # What occurs again.
    ("string_twice", "led_data", "2a 01 41 2a 01 42 18 01"),
    ("bytes_twice", "eeprom_data", "a2 01 01 41 a2 01 01 42"),
    ("number_twice", "pem_data", "18 01 18 02"),
    ("nested_message_twice", "pem_data", "0a 03 12 01 41 0a 03 12 01 42"),
    ("nested_message_twice_inside_another_twice", "pem_data",
     "0a 0a 0a 04 32 02 08 01 0a 02 08 07 0a 06 0a 04 32 02 08 01"),
    ("list_in_two_runs", "resp_inv_data", "5a 02 18 01 08 01 5a 00"),
    ("list_in_two_runs_over_unknown_field", "resp_inv_data", "5a 00 f8 03 00 5a 00"),
    # Lists.
    ("empty_elements", "resp_inv_data", "5a 00 " * 12),
    ("element_of_other_wire_type", "resp_inv_data", "5a 00 58 02 18 01 5a 00"),
    ("element_of_other_wire_type_too_long", "resp_inv_data", "5a 00 58 7f 18 01"),
    ("element_too_long_after_bad_one", "resp_inv_data", "5a 02 1f 00 5a 00 5a 05 00"),
    ("element_cut_short", "resp_inv_data", "5a 00 5a 80"),
    ("identifier_with_elements", "pem_data", "0a 10 0a 0e 08 01 32 04 08 01 10 02 32 04 08 03 10 04"),
    ("identifier_with_bad_element", "pem_data", "0a 08 0a 06 08 01 32 02 08 80"),
    ("identifier_of_wrong_wire_type", "pem_data", "0a 05 0a 03 0a 01 41"),
    # Strings that a terminal, a page or a reader of JSON might take for something else.
    ("terminal_escape", "led_data", "2a 0c 1b 5b 33 31 6d 07 08 0d 0a 7f 1b 5d"),
    ("control_characters_of_two_bytes", "led_data", "2a 06 c2 9b c2 80 c2 a0"),
    ("end_of_script", "led_data", "2a 09 3c 2f 73 63 72 69 70 74 3e"),
    ("quotes_and_backslashes", "led_data", "2a 06 22 5c 27 2f 5c 6e"),
    ("not_utf8", "led_data", "2a 05 ff 80 c3 41 fe"),
    ("half_of_a_surrogate_pair", "led_data", "2a 03 ed a0 80"),
    ("overlong_utf8", "led_data", "2a 04 c0 af e0 80"),
    ("four_byte_characters", "led_data", "2a 08 f0 9f 98 80 f4 8f bf bf"),
    ("nul_inside", "led_data", "2a 03 41 00 42"),
    ("empty_string", "led_data", "2a 00"),
    ("long_string", "led_data", "2a 96 01" + " 41" * 150),
    ("bytes_of_every_sort", "eeprom_data", "a2 01 08 00 01 7f 80 ff 3c 22 0a"),
    ("no_bytes", "eeprom_data", "a2 01 00"),
    # What is no message.
    ("nothing", "pem_data", ""),
    ("zeros", "pem_data", "00 " * 16),
    ("ones", "pem_data", "ff " * 16),
    ("text", "pem_data", "7b 22 66 33 22 3a 34 38 30 30 7d 0a"),
]


def of_golden():
    """The inputs of the library's own golden files, that they begin with a comment or hold an arrow left aside."""
    for path in sorted(GOLDEN.glob("*/*.hex")):
        lines = [line.split("#")[0] for line in path.read_text().splitlines()]
        digits = " ".join(lines).split("->")[0]
        data = bytes.fromhex(digits)
        if len(data) <= MOST or (path.parent.name in LONG and path.stem == "full" and len(data) <= 600):
            yield path.stem, path.parent.name, data


def damaged(data, chance):
    """A byte changed, left out or doubled, a bit turned over, or the end cut off."""
    data = bytearray(data)
    for _ in range(1 + int(chance.random() * 3)):
        at = int(chance.random() * len(data)) if data else 0
        kind = int(chance.random() * 5)
        if kind == 0:
            data[at:at + 1] = bytes([int(chance.random() * 256)])
        elif kind == 1:
            del data[at:at + 1 + int(chance.random() * 3)]
        elif kind == 2:
            data[at:at] = data[at:at + 1 + int(chance.random() * 8)]
        elif kind == 3 and data:
            data[at] ^= 1 << int(chance.random() * 8)
        else:
            del data[at + 1:]
    return bytes(data)


def main():
    chance = random.Random(4800)  # of it random() alone is used, which never changes
    valid = list(of_golden())
    inputs = [(f"golden.{name}", type_name, data) for name, type_name, data in valid]
    short = [entry for entry in valid if 8 <= len(entry[2]) <= MOST]
    for number in range(DAMAGED):
        name, type_name, data = short[int(chance.random() * len(short))]
        inputs.append((f"damaged.{number}_{name}", type_name, damaged(data, chance)))
    inputs += [(f"hostile.{name}", type_name, bytes.fromhex(digits)) for name, type_name, digits in HOSTILE]
    for name, type_name, data in inputs:
        print(name, type_name, data.hex() or "-")


if __name__ == "__main__":
    main()
