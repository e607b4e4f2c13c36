"""GDB shows messages of every type as the JSON printer does: every_type_test.py VESK_GDB EVERY_MESSAGE

Compared are the fields shown, their order, and each value. Not in JSON, as not encoded, are a null string and a list without
elements whose bits are set."""

import base64
import json
import re
import subprocess
import sys
import tempfile

OPTIONS = ["confirm off", "width 0", "print elements unlimited", "print repeats unlimited", "print max-depth unlimited",
           "charset ASCII", "disable-randomization off"]


class Text(bytes):
    """A string between quotation marks."""


class Data(bytes):
    """A bytes field."""


class Shown:
    """A line of GDB's, read into dictionaries, lists, Text, Data and the words of all else."""

    def __init__(self, line):
        self.line = line
        self.at = 0

    def take(self, pattern):
        found = re.compile(pattern).match(self.line, self.at)
        self.at = found.end() if found else self.at
        return found

    def value(self):
        if self.take(r"\{\}"):
            return {}
        if self.take(r"\{"):
            return dict(self.members(lambda: (self.take(r"(\w+) = ")[1], self.value())))
        if found := self.take(r"(\d+) elements?(?: = \{)?"):
            elements = list(self.members(self.value)) if found[0].endswith("{") else []
            assert len(elements) == int(found[1]), self.line
            return elements
        if found := self.take(r"(\d+) bytes?(?: ([0-9a-f]+))?"):
            data = Data(bytes.fromhex(found[2] or ""))
            assert len(data) == int(found[1]), self.line
            return data
        if found := self.take(r'"((?:[^"\\]|\\.)*)"'):
            return Text(found[1].encode().decode("unicode_escape").encode("latin-1"))
        return self.take(r"[^{},]+")[0]

    def members(self, member):
        while True:
            yield member()
            if self.take(r"\}"):
                return
            assert self.take(", "), f"{self.line[:self.at]} <- here: {self.line[self.at:]}"


def is_same(shown, expected):
    if isinstance(expected, dict):
        encoded = {name: value for name, value in shown.items() if value not in ("0x0", [])}
        return list(encoded) == list(expected) and all(is_same(encoded[name], expected[name]) for name in expected)
    if isinstance(expected, list):
        return len(shown) == len(expected) and all(map(is_same, shown, expected))
    if isinstance(expected, bool):
        return (int(shown) != 0) == expected  # JSON does not say which other number it is
    if isinstance(shown, Text):
        return shown == expected.encode("utf-8", "surrogateescape")
    if isinstance(shown, Data):
        return shown == base64.b64decode(expected)
    return shown == str(expected)


def main(printer, program):
    made = subprocess.run([program], stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
    expected = [(name, json.loads(text)) for name, text in (line.split(" ", 1) for line in made)]
    with tempfile.NamedTemporaryFile("w", suffix=".gdb") as commands:
        commands.writelines(f"set {option}\n" for option in OPTIONS)
        commands.write("break made\nrun >/dev/null\n")
        commands.writelines(f"print *(vesk_{name} *) messages[{i}]\n" for i, (name, _) in enumerate(expected))
        # The identifier by itself: it is a type of another library.
        with_eid = next(i for i, (name, fields) in enumerate(expected) if name == "threshold_data" and "eid" in fields)
        commands.write(f"print ((vesk_threshold_data *) messages[{with_eid}])->eid\n")
        expected.append(("drin_eid_st", expected[with_eid][1]["eid"]))
        commands.flush()
        done = subprocess.run(["gdb", "--batch", "-nx", "-x", printer, "-x", commands.name, program],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    lines = re.findall(r"^\$\d+ = (.*)$", done.stdout, flags=re.M)
    if done.returncode != 0 or len(lines) != len(expected):
        sys.exit(f"{done.stdout[-4000:]}\ngdb ended with {done.returncode} and showed {len(lines)} of {len(expected)} messages")
    wrong = [(name, fields, line) for (name, fields), line in zip(expected, lines) if not is_same(Shown(line).value(), fields)]
    for name, fields, line in wrong[:10]:
        print(f"{name}\n  gdb:  {line}\n  JSON: {json.dumps(fields)}")
    types = {name for name, _ in expected}
    print(f"{len(expected)} messages of {len(types)} types, {len(wrong)} shown wrong")
    return bool(wrong) or len(types) != 96


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
