#!/usr/bin/env python3
"""Holds the pre-flight's instructions to those of the decode that it stands before: check_counts.py PROGRAM TYPES.

On input that decode accepts, that of every workload of the gate, the pre-flight is to take no more. On hostile input, every
field of the types that the regular expression TYPES names over and over, it is to take no more than MOST_PER_BYTE for each byte. Counted inside the library, the
toolkit, the identifier's library and libc."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "counts"))
import counts  # noqa: E402

LIBRARIES = ("libvesk_inventory.so", "libvesk_toolkit.so", "libvesk_drin_eid.so", "libc.so")
MOST_PER_BYTE = 64


def main(program, types):
    ratios = {}
    for workload, operations in counts.count_run([program, "count", counts.GATED], LIBRARIES).items():
        check, decode = (operations[name]["instructions"] for name in ("check", "decode"))
        ratios[workload] = check / decode
        print(f"{workload}: {check:,.0f} of {decode:,.0f} instructions, {ratios[workload]:.2f}")
    per_byte = {name: operations["check"]["instructions"]
                for name, operations in counts.count_run([program, "hostile", types], LIBRARIES).items()}
    worst = max(per_byte, key=per_byte.get)
    print(f"hostile: at most {per_byte[worst]:.1f} instructions for each byte, of {len(per_byte)} inputs ({worst})")
    if per_byte[worst] > MOST_PER_BYTE:
        raise counts.Failure(f"{worst}: {per_byte[worst]:.1f} instructions for each byte, more than {MOST_PER_BYTE}")
    above = [name for name, ratio in ratios.items() if ratio > 1]
    if above:
        raise counts.Failure(f"the pre-flight takes more instructions than decode: {', '.join(above)}")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except counts.Failure as failure:
        sys.exit(f"check_counts.py: {failure}")
