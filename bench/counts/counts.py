"""Counts of instructions and mispredicted branches: reading them from callgrind, the gate against the baseline, and how
instructions grow.

    counts.py check-baseline PROGRAM BASELINE COMPILER    fails where a count rose by more than its tolerance
    counts.py write-baseline PROGRAM BASELINE COMPILER
    counts.py check-growth PROGRAM                        fails where instructions do not grow with the number of records
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

# What is counted, and callgrind's events for it. A jump to the wrong place costs what a branch to the wrong side costs.
EVENTS = {"instructions": ("Ir",), "branches": ("Bc", "Bi"), "mispredictions": ("Bcm", "Bim")}

# The named cases of the gate.
GATED = "(request|sensor|notification|fields_34)(_daily|_unlearned)?|chassis_(4|64)|main_(same|drawn)|handles"

# The simulated predictor says the same of the same library each time, but it is small, and which branches share an entry
# depends on where they lie. Thirteen builds of one source that differed in nothing else (code before it, functions
# aligned) agreed within this; a branch for each byte of a number multiplies mispredictions where widths are drawn.
INSTRUCTIONS_MORE = 0.02
MISPREDICTIONS_MORE = 0.10
MISPREDICTIONS_OF_BRANCHES = 0.02
MISPREDICTIONS_OF_A_CALL = 2

# The exponents are fitted from here on: below, what a call costs by itself shows.
FEWEST_RECORDS_FITTED = 1000
LEAST_EXPONENT, MOST_EXPONENT = 0.98, 1.02


class Failure(Exception):
    """Something that is told in one line."""


def _read_dump(path, libraries):
    """The title of a dump, and {event: count} inside the libraries, without what they call."""
    title, events, inside, is_call = None, {}, False, False
    with open(path, encoding="utf-8") as dump:
        for line in dump:
            if line.startswith("desc: Trigger: Client Request: "):
                title = line.rsplit(": ", 1)[1].strip()
            elif line.startswith("events: "):
                events = dict.fromkeys(line.split()[1:], 0)
            elif line.startswith("ob="):
                inside = pathlib.Path(line[3:].strip()).name.startswith(libraries)
            elif line.startswith("calls="):
                is_call = True  # the next line has the cost of what was called
            elif re.match(r"[0-9+*-]", line):
                if inside and not is_call:
                    for event, number in zip(events, line.split()[1:]):  # zeros at the end of a line are left out
                        events[event] += int(number)
                is_call = False
    return title, events


def count_run(command, libraries=(LIBRARY,), environment=None):
    """{workload: {operation: {quantity: per call}}}, of a program that dumps "WORKLOAD OPERATION CALLS"."""
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", "--branch-sim=yes", "--instr-atstart=no", "--compress-strings=no",
             "--dump-line=no", f"--callgrind-out-file={folder}/dump", *command],
            env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{done.stdout}counting with {command[0]} failed")
        counts = {}
        for path in sorted(pathlib.Path(folder).glob("dump.*"), key=lambda path: int(path.suffix[1:])):
            title, events = _read_dump(path, libraries)
            if title is None:  # the rest of the run
                continue
            workload, operation, calls = title.split()
            if events["Ir"] == 0:
                raise Failure(f"{title}: no instruction was counted in {', '.join(libraries)}")
            counts.setdefault(workload, {})[operation] = {
                quantity: sum(events[name] for name in names) / int(calls) for quantity, names in EVENTS.items()}
    if not counts:
        raise Failure(f"{' '.join(command)}: no workload has such a name")
    return counts


def count(program, workloads, most_records=0, library_folder=None):
    """What count_cases counts inside the library."""
    environment = dict(os.environ)
    if library_folder is not None:
        environment["LD_LIBRARY_PATH"] = str(library_folder)
    return count_run([program, workloads, str(most_records)], environment=environment)


def _most(before):
    """{quantity: what it may have risen to}"""
    return {"instructions": before["instructions"] * (1 + INSTRUCTIONS_MORE),
            "mispredictions": before["mispredictions"] * (1 + MISPREDICTIONS_MORE) +
                              before["branches"] * MISPREDICTIONS_OF_BRANCHES + MISPREDICTIONS_OF_A_CALL}


def _risen(before, after):
    return {quantity for quantity, most in _most(before).items() if after[quantity] > most}


def _change(workload, operation, quantity, before, after):
    digits = 0 if quantity == "instructions" else 1
    return f"{workload} {operation}: {before[quantity]:,.{digits}f} -> {after[quantity]:,.{digits}f} {quantity} per call"


def check_baseline(program, baseline_file, compiler):
    baseline = json.loads(pathlib.Path(baseline_file).read_text(encoding="utf-8"))
    remake = "remake it with bench/run --remake-baseline"
    if baseline["compiler"] != compiler:
        raise Failure(f"{baseline_file} counts what {baseline['compiler']} makes and this is {compiler}: {remake}, "
                      "or build with that compiler")
    counts = count(program, GATED)
    if {name: sorted(cases) for name, cases in counts.items()} != {
            name: sorted(cases) for name, cases in baseline["counts"].items()}:
        raise Failure(f"{baseline_file} has other cases than {program}: {remake}")
    rose = []
    for workload, operations in baseline["counts"].items():
        for operation, before in operations.items():
            after = counts[workload][operation]
            rose += [_change(workload, operation, quantity, before, after) for quantity in sorted(_risen(before, after))]
            for quantity in sorted(_risen(after, before)):
                print(f"fell, {remake}: {_change(workload, operation, quantity, before, after)}")
    if rose:
        raise Failure("\n".join(f"rose: {line}" for line in rose) +
                      f"\nby more than its tolerance; if that is meant, {remake} and say why in the commit")


def write_baseline(program, baseline_file, compiler):
    """A line for each case, so that a difference shows what moved."""
    workloads = []
    for workload, operations in sorted(count(program, GATED).items()):
        cases = []
        for operation, counted in sorted(operations.items()):
            rounded = {quantity: round(number, 1) if quantity == "mispredictions" else round(number)
                       for quantity, number in counted.items()}
            cases.append(f"      {json.dumps(operation)}: {json.dumps(rounded)}")
        workloads.append(f"    {json.dumps(workload)}: {{\n" + ",\n".join(cases) + "\n    }")
    text = f'{{\n  "compiler": {json.dumps(compiler)},\n  "counts": {{\n' + ",\n".join(workloads) + "\n  }\n}\n"
    pathlib.Path(baseline_file).write_text(text, encoding="utf-8")


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
            for operation, counted in operations.items():
                series.setdefault(operation, []).append((int(match.group(1)), counted["instructions"]))
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
    small, large = ({operation: counted["instructions"] for operation, counted in counts[workload].items()}
                    for workload in ("eeprom_16k_by_reference", "eeprom_64k_by_reference"))
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
