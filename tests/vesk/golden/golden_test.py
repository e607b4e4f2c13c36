#!/usr/bin/env python3
"""Each verb on each input of inputs.txt prints what stands in this folder, in a file for each verb and its options.

    golden_test.py PROGRAM            compares
    golden_test.py PROGRAM --remake   writes the files anew; read the difference before you commit it

An output stands after its input's name and type: the lines on standard output as they are, those on standard error after
"! ", and the status if it is not 0. Guesses are cut after the third.
"""

import concurrent.futures
import difflib
import pathlib
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
MOST_GUESSES = 3

RUNS = {
    "check": ["check", "TYPE"],
    "check_json": ["check", "--json", "TYPE"],
    "check_differences": ["check", "--differences", "TYPE"],
    "check_differences_json": ["check", "--differences", "--json", "TYPE"],
    "map": ["map", "TYPE"],
    "map_json": ["map", "--json", "TYPE"],
    "decode": ["decode", "TYPE"],
    "decode_text": ["decode", "--text", "TYPE"],
    "decode_table": ["decode", "--table", "TYPE"],
    "guess": ["guess"],
    "encode_hex": ["encode", "--hex", "TYPE"],  # of what decode prints
    "peek": ["peek", "TYPE", "entity_common"],
    "diff": ["diff", "TYPE", "-", "/dev/null"],
}


def shortened(run, text):
    lines = text.splitlines(keepends=True)
    if run != "guess" or len(lines) <= MOST_GUESSES:
        return text
    return "".join(lines[:MOST_GUESSES]) + f"... and {len(lines) - MOST_GUESSES} more\n"


def outputs_of(program, name, type_name, data):
    """What every run prints about one input."""
    outputs = {}
    for run, arguments in RUNS.items():
        stdin = data
        if run == "encode_hex":
            stdin = subprocess.run([program, "decode", type_name], input=data, capture_output=True, check=False).stdout
        command = [program, *(type_name if word == "TYPE" else word for word in arguments)]
        done = subprocess.run(command, input=stdin, capture_output=True, check=False, timeout=60)
        text = f"== {name} ({type_name})\n" + shortened(run, done.stdout.decode())
        text += "".join(f"! {line}\n" for line in done.stderr.decode().splitlines())
        outputs[run] = text + (f"status {done.returncode}\n" if done.returncode != 0 else "")
    return outputs


def main():
    program = sys.argv[1]
    inputs = [line.split() for line in (FOLDER / "inputs.txt").read_text().splitlines()]
    with concurrent.futures.ThreadPoolExecutor() as pool:
        all_outputs = list(pool.map(
            lambda entry: outputs_of(program, entry[0], entry[1], b"" if entry[2] == "-" else bytes.fromhex(entry[2])),
            inputs))
    failed = False
    for run in RUNS:
        path = FOLDER / f"{run}.txt"
        now = "\n".join(outputs[run] for outputs in all_outputs)
        if sys.argv[2:] == ["--remake"]:
            path.write_text(now, encoding="utf-8")
            continue
        before = path.read_text(encoding="utf-8")
        if now != before:
            failed = True
            sys.stdout.writelines(list(difflib.unified_diff(before.splitlines(keepends=True), now.splitlines(keepends=True),
                                                            path.name, "now"))[:60])
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
