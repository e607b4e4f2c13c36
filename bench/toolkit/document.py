#!/usr/bin/env python3
"""Measures the toolkit and writes its part of docs/performance.md: document.py PROGRAM PAGE.

PROGRAM is compare_toolkit. Times are ratios within one round of it, the median of 15; instructions are counted by callgrind in
the library, the toolkit, the identifier's library and libc."""

import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "counts"))
import counts  # noqa: E402
import check_counts  # noqa: E402

WORKLOADS = counts.GATED + "|scalars|idprom_4k|eeprom_64k"
PAIRS = (("pre-flight / decode", "check", "decode"), ("arena / malloc", "decode_with_arena", "decode_with_malloc"),
         ("one block / malloc", "one_block", "decode_with_malloc"), ("peek / decode", "peek", "decode"),
         ("peek at the first / decode", "peek_at_first", "decode"), ("gather / encode", "gather", "encode"))


def table(rows):
    text = "| |" + "|".join(f" {name} " for name, _, _ in PAIRS) + "|\n|---|" + "---:|" * len(PAIRS) + "\n"
    for workload, ratios in rows.items():
        text += f"| `{workload}` | " + " | ".join(f"{ratio:.2f}" for ratio in ratios) + " |\n"
    return text


def times(program):
    printed = subprocess.run([program, "time", WORKLOADS], check=True, capture_output=True, text=True).stdout
    return {line.split()[0]: [float(ratio) for ratio in line.split()[1:]] for line in printed.splitlines()[1:]}


def instructions(program):
    counted = counts.count_run([program, "count-all", WORKLOADS], check_counts.LIBRARIES)
    return {workload: [of[own]["instructions"] / of[peer]["instructions"] for _, own, peer in PAIRS]
            for workload, of in counted.items()}


def main(program, page):
    path = pathlib.Path(page)
    text = path.read_text(encoding="utf-8")
    for name, rows in (("times", times(program)), ("instructions", instructions(program))):
        marks = rf"(<!-- measured: toolkit {name} -->\n).*?(<!-- end -->)"
        text, found = re.subn(marks, lambda match: match[1] + table(rows) + match[2], text, flags=re.S)
        if found != 1:
            sys.exit(f"{page} has no place for the toolkit's {name}")
    path.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
