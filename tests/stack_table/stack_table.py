#!/usr/bin/env python3
"""The stack that each exported function needs at most: computed, and held to the table of docs/stack.md.

    stack_table.py compare DOCUMENT SOURCES... -- SYMBOLS... -- LIBRARY OBJECT... [-- LIBRARY OBJECT...]
    stack_table.py write   (the same)

compare fails if a row of the table says too little, write makes the rows anew. SOURCES declare the structures that
functions hand one another, SYMBOLS are lists of exported names, a LIBRARY is a linked one. Beside each of its OBJECTs
stands the .ci file of gcc -fcallgraph-info=su, with the frame of each function, return address included, and its calls;
the library says what the linker made of the calls, and who takes the address of which function.

A call through a pointer goes to a function whose address the calling function takes, in its code or in a table that it
uses, or to one that its caller may have handed it: in an argument that is a pointer to a function, or a structure with
one in it. There is no other way for a pointer to come. What would be one ends the computation, and so do recursion and
frames without bound. The program's own callbacks are not counted.

Where the sources say that a function calls members of a structure (`type.draft(...)`) and which functions such members are
set to (`type.draft = draft<Message>`), it calls none but those: the ones that it was handed or, if they were noted by
functions that it was handed (as drafting notes what assembling calls), the ones that are reached from there.
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


def template_name(name):
    """draft of a function draft<vesk_T> of the library; None of an exported function."""
    match = re.match(r"_ZNK?4vesk(?:12_GLOBAL__N_1)?(\d+)(\w+)", name)
    return match and match[2][:int(match[1])]


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


class Structures:
    """Which structures have a pointer to a function of the library in them, and which a callback of the program."""

    def __init__(self, sources):
        text = "\n".join(pathlib.Path(path).read_text(encoding="utf-8") for path in sources)
        # On one line or, in the form that is enforced, closed at the start of a later one.
        bodies = dict(re.findall(r"^struct (\w+)[^;{]*\{((?:[^\n]*(?=\};$))|(?:\n.*?(?=^\};$)))", text,
                                 re.MULTILINE | re.DOTALL))
        pointers = re.findall(r"^using (\w+) = [^;]*\(\*\)", text, re.MULTILINE)
        self.with_functions = self.holders(bodies, [r"\(\*\w+\)\(", *(rf"\b{name}\b" for name in pointers)])
        self.with_callbacks = self.holders(bodies, [r"\bvesk_alloc\b", r"\bvesk_release\b"])
        self.set_to = {}  # by member
        for member, function in re.findall(r"(?:\.|->)(\w+) = (\w+)<[^;=]*>\s*[,;}]", text):
            self.set_to.setdefault(member, set()).add(function)
        self.code = {}  # by the function's name
        for name, body in re.findall(r"^(?:[\w\[][^\n;]*? )?(\w+)\([^;{}]*?\) \{\n(.*?)^\}", text, re.MULTILINE | re.DOTALL):
            self.code[name] = self.code.get(name, "") + body
        self.through_members = functools.lru_cache(maxsize=None)(self.through_members)

    def through_members(self, name):
        """The template names of what a function, or one that may have become part of it, calls through members."""
        seen, found, open_ones = set(), set(), [name]
        while open_ones:
            each = open_ones.pop()
            if each in seen or each not in self.code:
                continue
            seen.add(each)
            words = re.findall(r"(\.|->)?\b(\w+)(?:<[^<>;()]*>)?\(", self.code[each])
            found |= {function for sign, word in words if sign for function in self.set_to.get(word, ())}
            open_ones += [word for sign, word in words if not sign]
        return found

    @staticmethod
    def holders(bodies, signs):
        """The structures in which one of the signs stands, or another such structure."""
        found = set()
        while True:
            more = {name for name, body in bodies.items()
                    if any(re.search(sign, body) for sign in [*signs, *(rf"\b{name}\b" for name in found)])}
            if more == found:
                return found
            found = more

    def may_hand_functions(self, name):
        """True if the types of a mangled name say that the function is handed others: PF is a pointer to one."""
        return "PF" in name or self.mentions(name, self.with_functions)

    def may_hand_callbacks(self, name):
        is_exported = not name.startswith("_Z")
        return is_exported or self.mentions(name, self.with_callbacks)

    @staticmethod
    def mentions(name, structures):
        return any(f"{len(each)}{each}" in name for each in structures)


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
        starts = {int(address, 16): plain(name)
                  for address, name in re.findall(r"^([0-9a-f]+) <([^>]+)>:$", text, re.MULTILINE)}
        tables = Tables(path, starts)
        function = None
        for line in text.splitlines():
            start = re.match(r"[0-9a-f]+ <([^>]+)>:$", line)
            jump = re.match(r"\s+[0-9a-f]+:\s+(?:bnd |notrack )?(call|j\w+)\s+(?:[0-9a-f]+|\*\S+ +# [0-9a-f]+) <([^>+]+)",
                            line)
            address = re.search(r"# ([0-9a-f]+) <([^>+]+)", line)
            if start:
                function = self.function(start[1])
            elif jump:
                target = plain(jump[2]).split("@")[0]
                if jump[1] == "call" or target != function.name:
                    function.calls.add(target)
            elif address:
                function.takes |= tables.functions_at(int(address[1], 16), address[2])


class Tables:
    """The functions whose addresses stand in a library's data, by the table that they stand in."""

    def __init__(self, library, starts):
        self.starts = starts
        self.objects = [(int(start, 16), int(start, 16) + int(size, 0), name) for start, size, name in re.findall(
            r"^ *\d+: ([0-9a-f]+) +(\w+) OBJECT .* (\S+)$", output_of("readelf", "-sW", library), re.MULTILINE)]
        self.slots = {}
        for slot, kind, value in re.findall(r"^([0-9a-f]+)  [0-9a-f]+ R_\w+?_(RELATIVE|64|GLOB_DAT) +(?:[0-9a-f]{16} +)?(\S+)",
                                            output_of("readelf", "-rW", library), re.MULTILINE):
            self.slots[int(slot, 16)] = int(value, 16) if kind == "RELATIVE" else value.split("@")[0]
        for slot, value in self.slots.items():
            if "vesk" in self.starts.get(value, "") and not self.object_at(slot):
                raise Unbounded(f"{library} has the address of {readable(self.starts[value])} in data without a name")

    def object_at(self, address):
        return next((each for each in self.objects if each[0] <= address < each[1]), None)

    def functions_at(self, address, name):
        """The functions that the use of an address gives: the one there, or those of the table there."""
        if address in self.starts:
            return {self.starts[address]}
        if isinstance(self.slots.get(address), str):
            return {self.slots[address]}  # another library's function, through the table of such addresses
        table = self.object_at(address)
        found = set()
        for slot in self.slots:
            if table and table[0] <= slot < table[1] and self.slots[slot] != address:
                value = self.slots[slot]
                found |= {value} if isinstance(value, str) else self.functions_at(value, name)
        return found


class Program:
    def __init__(self, libraries, structures):
        self.libraries = libraries
        self.structures = structures
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

    def reached_from(self, handed, library, names):
        """Of the functions handed those of these template names; if there is none, those that are reached from them."""
        seen, open_ones = set(), list(handed)
        found = {name for name in handed if template_name(name) in names}
        while open_ones and not found:
            seen |= set(open_ones)
            functions = [library.functions[name] for name in open_ones if name in library.functions]
            open_ones = list({name for function in functions for name in function.calls | function.takes} - seen)
            found = {name for name in open_ones if template_name(name) in names}
        return found

    def descend(self, place, handed):
        """The same under any function; `handed` are those that its caller may pass pointers to."""
        library, function = place
        if (place, handed) in self.open:
            raise Unbounded("recursion: " + ", ".join(readable(each.name) for (_, each), _ in self.open))
        known = frozenset(function.takes) | (handed if self.structures.may_hand_functions(function.name) else frozenset())
        through = self.structures.through_members(template_name(function.name)) if function.calls_pointer else set()
        pointed_at = self.reached_from(known, library, through) if through else known
        if function.calls_pointer and not known and not self.structures.may_hand_callbacks(function.name):
            raise Unbounded(f"{readable(function.name)} calls through a pointer that comes from nowhere")
        called = function.calls - NOT_COUNTED | (pointed_at if function.calls_pointer else set())
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
    headers, symbols, *libraries = split_at_dashes(rest)
    try:
        program = Program([Library(path, objects) for path, *objects in libraries], Structures(headers))
        computed = compute(symbols, program)
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
