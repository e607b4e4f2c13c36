#!/usr/bin/env python3
"""The stack that each exported function needs at most: computed, and held to the table of docs/stack.md.

    stack_table.py compare DOCUMENT SYMBOLS... -- LIBRARY OBJECT... [-- LIBRARY OBJECT...]
    stack_table.py write   DOCUMENT SYMBOLS... -- LIBRARY OBJECT... [-- LIBRARY OBJECT...]

compare fails if a row of the table says too little, write makes the rows anew. SYMBOLS are lists of exported names, a
LIBRARY is a linked one. Beside each of its OBJECTs stands the .ci file of gcc -fcallgraph-info=su, with the frame of each
function, return address included, and its calls; the library says what the linker made of the calls, and which function
takes the address of which.

A call through a pointer goes to a function whose address the calling function takes, or which it was handed as an
argument: then one whose address its caller takes, or was handed. There is no other way for a pointer to come: what would
be one (an address in a table or variable, a pointer from nowhere) ends the computation, and so do recursion and frames
without bound. The caller's own callbacks travel in Allocator and Releaser and are not counted.
"""

import functools
import pathlib
import re
import subprocess
import sys

RED_ZONE = 128  # bytes below its frame that the last function may use without saying so
NOT_COUNTED = {"memcpy", "memset", "strlen"}
OPERATIONS = ("encode_ext", "decode_ext", "duplicate", "free_ext")
ROW = re.compile(r"^\| `(vesk_\w+)` \| (\d+) \| (\d+) \| (\d+) \| (\d+) \|$")


class Unbounded(Exception):
    """Why the computation cannot say how deep the stack becomes."""


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def readable(name):
    return output_of("c++filt", name).strip()


def plain(name):
    """A function's name without its file, and the same for the part of it that the compiler moved away."""
    return re.sub(r"\.cold(\.\d+)?$", "", name.rsplit(":", 1)[-1])


class Function:
    def __init__(self, name):
        self.name = name
        self.frame = None
        self.calls = set()
        self.takes = set()  # names of the functions whose address it takes
        self.calls_pointer = False

    def is_handed_functions(self):
        return "PF" in self.name  # so a mangled name spells an argument that points to a function

    def is_handed_callbacks(self):
        is_exported = not self.name.startswith("_Z")
        return is_exported or "9Allocator" in self.name or "8Releaser" in self.name


class Library:
    def __init__(self, path, objects):
        self.functions = {}
        for compiled in objects:
            self.read_frames(pathlib.Path(compiled).with_suffix(".ci").read_text(encoding="utf-8"))
        self.read_code(path)

    def function(self, name):
        return self.functions.setdefault(plain(name), Function(plain(name)))

    def read_frames(self, text):
        """Of two objects' functions of one name the larger frame counts."""
        for name, label in re.findall(r'^node: \{ title: "([^"]+)" label: "([^"]+)"', text, re.MULTILINE):
            frame = re.search(r"\\n(\d+) bytes \((.*)\)$", label)
            if not frame:
                continue  # defined elsewhere
            if frame[2] not in ("static", "dynamic,bounded"):
                raise Unbounded(f"{readable(name)} has a frame without bound")
            function = self.function(name)
            function.frame = max(function.frame or 0, int(frame[1]))
        for caller, called in re.findall(r'^edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"', text, re.MULTILINE):
            if called == "__indirect_call":
                self.function(caller).calls_pointer = True
            else:
                self.function(caller).calls.add(plain(called))

    def read_code(self, path):
        text = output_of("objdump", "-dw", "--no-show-raw-insn", path)
        names = dict(re.findall(r"^0*([0-9a-f]+) <([^>]+)>:$", text, re.MULTILINE))
        refuse_functions_in_data(path, {address for address, name in names.items() if "vesk" in name})
        function = None
        for line in text.splitlines():
            start = re.match(r"[0-9a-f]+ <([^>]+)>:$", line)
            jump = re.match(r"\s+[0-9a-f]+:\s+(?:bnd |notrack )?(call|j\w+)\s+[0-9a-f]+ <([^>+]+)", line)
            address = re.search(r"# ([0-9a-f]+) <", line)
            if start:
                function = self.function(start[1])
            elif jump:
                if jump[1] == "call" or plain(jump[2]) != function.name:
                    function.calls.add(plain(jump[2]).removesuffix("@plt"))
            elif address and address[1] in names:
                function.takes.add(plain(names[address[1]]))


def refuse_functions_in_data(library, addresses):
    for line in output_of("readelf", "-rW", library).splitlines():
        own = re.search(r"_RELATIVE\s+([0-9a-f]+)$", line)
        if (own and own[1] in addresses) or ("vesk" in line and line.startswith("0") and "_JUMP_SLOT" not in line):
            raise Unbounded(f"{library} has the address of a function in its data: {line.strip()}")


class Program:
    def __init__(self, libraries):
        self.libraries = libraries
        self.descend = functools.lru_cache(maxsize=None)(self.descend)
        self.open = []

    def worst(self, name):
        """The deepest stack under an exported function, and the path down there."""
        depth, path = self.descend(self.find(name, None), frozenset())
        return depth + RED_ZONE, path

    def find(self, name, library):
        """A function of the library, else the one that another library exports."""
        for each in [library] if library and name in library.functions else self.libraries:
            function = each.functions.get(name)
            if function and function.frame is not None:
                return each, function
        raise Unbounded(f"{readable(name)} is called, and gcc says nothing of it")

    def descend(self, place, handed):
        """The same under any function; `handed` are those that its caller may pass pointers to."""
        library, function = place
        if (place, handed) in self.open:
            raise Unbounded("recursion: " + ", ".join(readable(each.name) for (_, each), _ in self.open))
        known = frozenset(function.takes) | (handed if function.is_handed_functions() else frozenset())
        if function.calls_pointer and not known and not function.is_handed_callbacks():
            raise Unbounded(f"{readable(function.name)} calls through a pointer that comes from nowhere")
        called = function.calls - NOT_COUNTED | (known if function.calls_pointer else set())
        self.open.append((place, handed))
        deepest, path = max((self.descend(self.find(name, library), known) for name in called), default=(0, ()),
                            key=lambda found: found[0])
        self.open.pop()
        return function.frame + deepest, (function, *path)


def compute(symbols, program):
    """What the functions of each type need, in the order of the lists of exported names."""
    names = [name for path in symbols for name in pathlib.Path(path).read_text(encoding="utf-8").split()]
    types = [name.removesuffix("_encode_ext") for name in names if name.endswith("_encode_ext")]
    return {message: [program.worst(f"{message}_{operation}") for operation in OPERATIONS] for message in types}


def faults_of(stated, computed):
    faults = [f"there is no type {message}" for message in stated if message not in computed]
    for message, needs in computed.items():
        for operation, (depth, path), says in zip(OPERATIONS, needs, stated.get(message, [0] * len(OPERATIONS))):
            if depth > says:
                frames = "".join(f"\n  {function.frame:5}  {readable(function.name)}" for function in path)
                faults.append(f"{message}_{operation} needs {depth} bytes, the table says {says}:{frames}")
    return faults


def read_rows(text):
    rows = filter(None, map(ROW.match, text.splitlines()))
    return {row[1]: [int(figure) for figure in row.groups()[1:]] for row in rows}


def write_rows(document, computed):
    lines = [line for line in document.read_text(encoding="utf-8").splitlines() if not ROW.match(line)]
    place = next(i for i, line in enumerate(lines) if line.startswith("|---")) + 1
    lines[place:place] = [f"| `{message}` | " + " | ".join(str(depth) for depth, _ in needs) + " |"
                          for message, needs in computed.items()]
    document.write_text("\n".join(lines) + "\n", encoding="utf-8")


def split_at_dashes(words):
    groups = [[]]
    for word in words:
        if word == "--":
            groups.append([])
        else:
            groups[-1].append(word)
    return groups


def main():
    mode, document, *rest = sys.argv[1:]
    document = pathlib.Path(document)
    symbols, *libraries = split_at_dashes(rest)
    try:
        computed = compute(symbols, Program([Library(path, objects) for path, *objects in libraries]))
    except Unbounded as fault:
        sys.exit(f"no bound: {fault}")
    if mode == "write":
        write_rows(document, computed)
        return
    faults = faults_of(read_rows(document.read_text(encoding="utf-8")), computed)
    if faults:
        print("\n".join(faults))
        sys.exit("docs/stack.md says too little; if that is meant, remake its table with the target stack-table")
    deepest = max(depth for needs in computed.values() for depth, _ in needs)
    print(f"{len(computed) * len(OPERATIONS)} functions stay within the table; the deepest needs {deepest} bytes")


if __name__ == "__main__":
    main()
