"""Instruction counts: reading them from callgrind, the gate against the baseline, and how they grow.

    counts.py check-baseline PROGRAM BASELINE COMPILER    fails where a count rose by more than 2 %
    counts.py write-baseline PROGRAM BASELINE COMPILER
    counts.py check-growth PROGRAM                        fails where a count does not grow with the number of records
    counts.py check-reference PROGRAM                     fails where bytes by reference cost more if they are more

PROGRAM is count_cases; COMPILER names the compiler that built the library, as "GNU 12.2.0".
"""

import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile

LIBRARY = "libvesk_inventory.so"

# The named cases of the gate.
GATED = "request|sensor|notification|main_same|main_drawn|handles"
TOLERANCE = 0.02

# The exponents are fitted from here on: below, what a call costs by itself shows.
FEWEST_RECORDS_FITTED = 1000
LEAST_EXPONENT, MOST_EXPONENT = 0.98, 1.02

class Failure(Exception):
    """Something that is told in one line."""


def _read_dump(path):
    """The title of a dump, and the instructions inside the library, without what it calls."""
    title, total, inside, is_call = None, 0, False, False
    with open(path, encoding="utf-8") as dump:
        for line in dump:
            if line.startswith("desc: Trigger: Client Request: "):
                title = line.rsplit(": ", 1)[1].strip()
            elif line.startswith("ob="):
                inside = pathlib.Path(line[3:].strip()).name.startswith(LIBRARY)
            elif line.startswith("calls="):
                is_call = True  # the next line has the cost of what was called
            elif re.match(r"[0-9+*-]", line):
                if inside and not is_call:
                    total += int(line.split()[1])
                is_call = False
    return title, total


def count(program, workloads, most_records=0, library_folder=None):
    """{workload: {operation: instructions per call}}"""
    environment = dict(os.environ)
    if library_folder is not None:
        environment["LD_LIBRARY_PATH"] = str(library_folder)
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--compress-strings=no", "--dump-line=no",
             f"--callgrind-out-file={folder}/dump", program, workloads, str(most_records)],
            env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{done.stdout}counting with {program} failed")
        counts = {}
        for path in sorted(pathlib.Path(folder).glob("dump.*"), key=lambda path: int(path.suffix[1:])):
            title, total = _read_dump(path)
            if title is None:  # the rest of the run
                continue
            workload, operation, calls = title.split()
            if total == 0:
                raise Failure(f"{title}: no instruction was counted in {LIBRARY}")
            counts.setdefault(workload, {})[operation] = total / int(calls)
    if not counts:
        raise Failure(f"no workload is called {workloads}")
    return counts


def check_baseline(program, baseline_file, compiler):
    baseline = json.loads(pathlib.Path(baseline_file).read_text(encoding="utf-8"))
    remake = "remake it with bench/run --remake-baseline"
    if baseline["compiler"] != compiler:
        raise Failure(f"{baseline_file} counts what {baseline['compiler']} makes and this is {compiler}: {remake}, "
                      "or build with that compiler")
    counts = count(program, GATED)
    if {name: sorted(cases) for name, cases in counts.items()} != {
            name: sorted(cases) for name, cases in baseline["instructions"].items()}:
        raise Failure(f"{baseline_file} has other cases than {program}: {remake}")
    rose = []
    for workload, operations in baseline["instructions"].items():
        for operation, before in operations.items():
            after = counts[workload][operation]
            line = f"{workload} {operation}: {before:,.0f} -> {after:,.0f} instructions per call ({after / before - 1:+.1%})"
            if after > before * (1 + TOLERANCE):
                rose.append(line)
            elif after < before * (1 - TOLERANCE):
                print(f"fell, {remake}: {line}")
    if rose:
        raise Failure("\n".join(f"rose by more than {TOLERANCE:.0%}: {line}" for line in rose) +
                      f"\nif that is meant, {remake} and say why in the commit")


def write_baseline(program, baseline_file, compiler):
    counts = count(program, GATED)
    rounded = {workload: {operation: round(total) for operation, total in operations.items()}
               for workload, operations in counts.items()}
    text = json.dumps({"compiler": compiler, "instructions": rounded}, indent=2, sort_keys=True)
    pathlib.Path(baseline_file).write_text(text + "\n", encoding="utf-8")


def exponent(points):
    """The slope of the straight line through the logarithms: points are (records, instructions)."""
    xs = [math.log(records) for records, _ in points]
    ys = [math.log(instructions) for _, instructions in points]
    mean_x, mean_y = sum(xs) / len(xs), sum(ys) / len(ys)
    return (sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys)) / sum((x - mean_x) ** 2 for x in xs))


def growth(counts):
    """{operation: exponent of the instructions with the number of records}; empty if there is nothing to fit."""
    series = {}
    for workload, operations in counts.items():
        match = re.fullmatch(r"growth_(\d+)", workload)
        if match and int(match.group(1)) >= FEWEST_RECORDS_FITTED:
            for operation, instructions in operations.items():
                series.setdefault(operation, []).append((int(match.group(1)), instructions))
    return {operation: exponent(points) for operation, points in series.items() if len(points) > 1}


def is_linear(value):
    return LEAST_EXPONENT <= value <= MOST_EXPONENT


def check_growth(program):
    exponents = growth(count(program, "growth_1000|growth_10000", 10000))
    wrong = [f"{operation}: instructions grow with records to the power of {value:.3f}"
             for operation, value in exponents.items() if not is_linear(value)]
    if not exponents:
        raise Failure(f"{program} has no growth series")
    if wrong:
        raise Failure("\n".join(wrong))


def check_reference(program):
    # Both lengths take three bytes on the wire.
    counts = count(program, "eeprom_(16|64)k_by_reference")
    small, large = counts["eeprom_16k_by_reference"], counts["eeprom_64k_by_reference"]
    wrong = [f"{operation} by reference: {small[operation]:,.0f} instructions for 16 KiB, {large[operation]:,.0f} for 64"
             for operation in small if operation != "duplicate" and small[operation] != large[operation]]
    if wrong:
        raise Failure("\n".join(wrong))


COMMANDS = {"check-baseline": check_baseline, "write-baseline": write_baseline, "check-growth": check_growth,
            "check-reference": check_reference}


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in COMMANDS:
        sys.exit(__doc__.strip())
    try:
        COMMANDS[sys.argv[1]](*sys.argv[2:])
    except Failure as failure:
        sys.exit(f"counts: {failure}")


if __name__ == "__main__":
    main()
