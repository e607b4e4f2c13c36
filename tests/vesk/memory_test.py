"""Large inputs take no more memory than their size and so many MiB: lists through check, map --json and decode, and more
with --all, out of a file, out of a pipe and as hexadecimal digits.

    memory_test.py PROGRAM MEGABYTES MORE_MIB [--all]
"""

import os
import pathlib
import subprocess
import sys
import tempfile

VERBS = [["check"], ["map", "--json"], ["decode"]]
OTHER_VERBS = [["check", "--differences"], ["map"], ["decode", "--text"], ["guess"]]
ELEMENT = bytes.fromhex("5a10 0a0b 1205 6e6f727468 2007 3801 18c025")  # pem_list {entity_common {f2 f4 f7} f3}
BLOCK = ELEMENT * 10000


def write(path, size, encode):
    with open(path, "wb") as file:
        for _ in range(size // len(BLOCK) + 1):
            file.write(encode(BLOCK))
    return os.path.getsize(path)


def peak_of(command, stdin):
    """In bytes. This process stays small, since a child counts what its parent had when it was born."""
    child = subprocess.Popen(command, stdin=stdin, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{' '.join(command)}: status {child.returncode}")
    return usage.ru_maxrss * 1024


def main():
    program, megabytes, more = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]) << 20
    failed = False
    with tempfile.TemporaryDirectory() as folder:
        raw = pathlib.Path(folder) / "raw"
        digits = pathlib.Path(folder) / "digits"
        size = write(raw, megabytes * 1000000, bytes)
        size_of_digits = write(digits, megabytes * 1000000, lambda block: block.hex(" ").encode() + b"\n")
        for verb in VERBS + (OTHER_VERBS if "--all" in sys.argv else []):
            type_name = [] if verb == ["guess"] else ["resp_inv_data"]
            with subprocess.Popen(["cat", str(raw)], stdout=subprocess.PIPE) as pipe:
                peaks = {"file": (peak_of([program, *verb, *type_name, str(raw)], subprocess.DEVNULL), size),
                         "pipe": (peak_of([program, *verb, *type_name], pipe.stdout), size)}
            if verb == ["check"]:
                peaks["digits"] = (peak_of([program, *verb, "--hex", *type_name, str(digits)], subprocess.DEVNULL),
                                   size_of_digits)
            for source, (peak, length) in peaks.items():
                print(f"{' '.join(verb)} from {source}: {peak >> 20} MiB for {length >> 20}")
                failed = failed or peak > length + more
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
