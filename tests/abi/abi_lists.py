"""Holds the public headers to the checked-in lists of sizes, offsets and values, or writes these lists.

    abi_lists.py compare|write LIST INCLUDE_DIR COMPILER

LIST is a file called layout-64.txt, layout-32.txt or values.txt, with toolkit- in front for libvesk_toolkit. The facts in it are the compiler's: a C file that
names every structure, member and enumerator of the headers is compiled, never run, and its numbers are read from the
object file. So the 32-bit list needs no 32-bit libraries, and no machine that runs 32-bit programs.
"""

import os
import re
import struct
import subprocess
import sys
import tempfile

HEADERS = {  # by what the name of a list begins with
    "": ("vesk_runtime.h", "drin_eid.h", "inventory_db.h", "client_service.h"),
    "toolkit-": ("vesk_facts.h", "vesk_toolkit.h"),
    "text-": ("vesk_text.h",),
}
REMAKE = "cmake --build --preset release-clang --target abi-baseline"
TITLES = {
    "layout-64.txt": "Bytes that every structure and member takes on x86-64.",
    "layout-32.txt": "Bytes that every structure and member takes on i386.",
    "values.txt": "The values of all enumerators: result codes, flags and presence bits.",
}


def split_name(list_name):
    """The headers of a list, and its name without what says so."""
    prefix, name = re.fullmatch(r"([a-z]+-(?=layout|values))?(.*)", list_name).groups(default="")
    return HEADERS[prefix], name


def read_headers(headers, include_dir):
    """Structures as [(name, [(member, type)])] and the enumerators' names, in the headers' order."""
    structures, enumerators = [], []
    for header in headers:
        with open(os.path.join(include_dir, "vesk", header), encoding="utf-8") as file:
            text = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)
        for body, name in re.findall(r"^typedef struct \w+ \{(.*?)^\} (\w+);", text, flags=re.S | re.M):
            structures.append((name, read_members(body, name)))
        for body in re.findall(r"^enum \w+ \{(.*?)^\};", text, flags=re.S | re.M):
            enumerators += [entry.split("=")[0].strip() for entry in body.split(",")]
        if re.search(r"\b(struct|enum|union)\b", re.sub(r"^(typedef struct|enum) \w+ \{", "", text, flags=re.M)):
            sys.exit(f"{header}: declares a type in a form that this script does not read")
    return structures, enumerators


def read_members(body, structure):
    members = []
    for declaration in filter(None, map(str.strip, body.split(";"))):
        # A pointer to a function is as large as any other.
        declaration = re.sub(r"^\w+ \(\*(\w+)\)\(.*\)$", r"vesk_alloc \1", declaration, flags=re.S)
        declaration = re.sub(r"(\*+)\s+", r" \1", declaration)
        match = re.fullmatch(r"((?:const |unsigned )*\w+)\s+(\**)(\w+)((?:\[\w+\])?)", declaration)
        if not match:
            sys.exit(f"{structure}: cannot read the member '{declaration}'")
        kind, stars, member, dimension = match.groups()
        members.append((member, kind + stars + dimension))
    return members


def facts_to_ask(list_name, include_dir):
    """What stands in the list, as (subject, form of the facts, C expressions)."""
    headers, list_name = split_name(list_name)
    structures, enumerators = read_headers(headers, include_dir)
    if list_name == "values.txt":
        return [(name, "= {}", [name]) for name in enumerators]
    asked = []
    for structure, members in structures:
        asked.append((structure, "size {}, alignment {}", [f"sizeof({structure})", f"_Alignof({structure})"]))
        for member, kind in members:
            asked.append((f"{structure}.{member}", "offset {}, size {}, alignment {}",
                          [f"offsetof({structure}, {member})", f"sizeof((({structure} *)0)->{member})",
                           f"_Alignof({kind})"]))
    return asked


def ask_compiler(compiler, options, headers, include_dir, expressions):
    lines = [f"#include <vesk/{header}>" for header in headers]
    lines += ["#include <stddef.h>", '__attribute__((section(".vesk_facts"))) const long long facts[] = {']
    lines += [f"    (long long)({expression})," for expression in expressions] + ["};", ""]
    with tempfile.TemporaryDirectory() as scratch:
        source, compiled, facts = (os.path.join(scratch, name) for name in ("facts.c", "facts.o", "facts"))
        with open(source, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))
        # Freestanding: <stdint.h> is then the compiler's own and needs no C library of that word size.
        subprocess.run([compiler, *options, "-std=c11", "-ffreestanding", "-I", include_dir, "-c", source,
                        "-o", compiled], check=True)
        subprocess.run(["objcopy", "-O", "binary", "--only-section=.vesk_facts", compiled, facts], check=True)
        with open(facts, "rb") as file:
            return list(struct.unpack(f"<{len(expressions)}q", file.read()))


def facts_of_headers(list_name, include_dir, compiler):
    asked = facts_to_ask(list_name, include_dir)
    headers, kind = split_name(list_name)
    options = ["-m32"] if kind == "layout-32.txt" else []
    numbers = iter(ask_compiler(compiler, options, headers, include_dir, [one for _, _, some in asked for one in some]))
    return {subject: form.format(*(next(numbers) for _ in some)) for subject, form, some in asked}


def read_list(path):
    with open(path, encoding="utf-8") as file:
        return dict(line.rstrip("\n").split(maxsplit=1) for line in file if not line.startswith("#"))


def write_list(path, facts):
    width = max(map(len, facts))
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"# {TITLES[split_name(os.path.basename(path))[1]]} docs/abi.md says what it is for. Remade by\n# {REMAKE}\n")
        file.writelines(f"{subject:{width}} {fact}\n" for subject, fact in facts.items())


def compare(path, promised, found):
    moved = []
    for subject in [*promised, *(subject for subject in found if subject not in promised)]:
        before, now = promised.get(subject), found.get(subject)
        if now is None:
            moved.append(f"  {subject}: is gone, was {before.lstrip('= ')}")
        elif before is None:
            moved.append(f"  {subject}: is new, {now.lstrip('= ')}")
        elif before != now:
            moved.append(f"  {subject}: was {before.lstrip('= ')}; is {now.lstrip('= ')}")
    if moved:
        print(f"The ABI moved: the public headers differ from {os.path.basename(path)}:", *moved,
              "If that is meant, docs/abi.md says whether the SONAME has to move as well. Then remake the lists:",
              f"  {REMAKE}", sep="\n")
    else:
        print(f"{len(found)} entries are those of {os.path.basename(path)}")
    return bool(moved)


def main():
    task, path, include_dir, compiler = sys.argv[1:]
    found = facts_of_headers(os.path.basename(path), include_dir, compiler)
    if task == "write":
        return write_list(path, found)
    return compare(path, read_list(path), found)


if __name__ == "__main__":
    sys.exit(main())
