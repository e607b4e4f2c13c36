"""Whether a program that was built for a release runs with the libraries of today.

    check_upgrade.py check RELEASE LIBRARIES INCLUDE COMPILER
    check_upgrade.py freeze RELEASE LIBRARIES INCLUDE COMPILER

RELEASE is a folder with what programs were built with: the public headers, the libraries' symbols with their version nodes,
and such a program. LIBRARIES has the shared libraries of today, INCLUDE their headers. The program is built against the
headers and libraries of RELEASE alone (the libraries are empty functions under the old names), and run with those of
today, never linked with them. Before that, each size, offset and value of the old headers must be in the new ones.

`freeze` makes RELEASE's headers and symbols out of the libraries of today: for a release, docs/releases.md.
"""

import functools
import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "abi"))
import abi_lists  # noqa: E402

LIBRARIES = ("vesk_inventory", "vesk_toolkit", "vesk_text")
LISTS = [f"{library}{kind}.txt" for library in ("", "toolkit-", "text-") for kind in ("layout-64", "layout-32", "values")]
# These may grow at their end: a program says by their size which it knows, or reaches them through functions only.
GROWING = {"vesk_options", "vesk_report", "vesk_value", "vesk_text_options", "vesk_text_report", "vesk_type", "vesk_field"}


def run(*command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    return done.returncode, done.stdout


def build(*command):
    code, said = run(*command)
    if code != 0:
        sys.exit(f"cannot build the program of the release:\n{said[:3000]}")


def exported(library):
    """The names of a library's symbols with their version nodes, and its SONAME."""
    _, symbols = run("nm", "--dynamic", "--defined-only", "--with-symbol-versions", library)
    _, dynamic = run("readelf", "--dynamic", library)
    soname = re.search(r"\(SONAME\).*\[(.*)\]", dynamic)[1]
    return soname, sorted(re.findall(r"^\w+ T (\w+)@@(\w+)$", symbols, flags=re.M))


def freeze(release, libraries, include):
    folder = release / "include" / "vesk"
    folder.mkdir(parents=True, exist_ok=True)
    for header in sorted((include / "vesk").glob("*.h")):
        (folder / header.name).write_bytes(header.read_bytes())
    with open(release / "symbols.txt", "w", encoding="ascii") as file:
        file.write(f"# What programs for {release.name} are linked with: library, function, version node.\n")
        for library in LIBRARIES:
            soname, symbols = exported(libraries / f"lib{library}.so")
            file.writelines(f"{soname} {name} {node}\n" for name, node in symbols)


def read_symbols(release):
    """{SONAME: {version node: [function]}}"""
    libraries = {}
    for line in (release / "symbols.txt").read_text(encoding="ascii").splitlines():
        if not line.startswith("#"):
            soname, name, node = line.split()
            libraries.setdefault(soname, {}).setdefault(node, []).append(name)
    return libraries


@functools.cache
def facts_of_today(name, include, compiler):
    return abi_lists.facts_of_headers(name, str(include), compiler)


def moved_facts(release, include, compiler):
    """What the old headers say and the new ones do not. What is new beside it breaks nobody."""
    moved = []
    for name in LISTS:
        before = abi_lists.facts_of_headers(name, str(release / "include"), compiler)
        now = facts_of_today(name, include, compiler)
        for subject, fact in before.items():
            grown = subject in GROWING and subject in now and size_of(now[subject]) > size_of(fact)
            if now.get(subject) != fact and not grown:
                moved.append(f"{name}: {subject}: was {fact}, is {now.get(subject, 'gone')}")
    return moved


def size_of(fact):
    return int(re.match(r"size (\d+)", fact)[1])


def build_program(release, compiler, scratch):
    """The release's program, linked with libraries that have the release's symbols and nothing in them."""
    libraries = read_symbols(release)
    names = {name for nodes in libraries.values() for some in nodes.values() for name in some}
    types = [name.removesuffix("_encode_ext") for name in sorted(names) if name.endswith("_encode_ext")]
    (scratch / "all_types.inc").write_text("".join(f"CALL({name})\n" for name in types), encoding="ascii")
    files = []
    for soname, nodes in libraries.items():
        source, versions = scratch / f"{soname}.c", scratch / f"{soname}.map"
        source.write_text("".join(f"void {name}(void) {{}}\n" for some in nodes.values() for name in some), encoding="ascii")
        versions.write_text("".join(f"{node} {{ global: {'; '.join(some)}; }};\n" for node, some in nodes.items()),
                            encoding="ascii")
        files.append(scratch / soname)
        build(compiler, "-shared", "-fPIC", "-nostdlib", "-w", f"-Wl,-soname,{soname}", f"-Wl,--version-script={versions}",
              source, "-o", files[-1])
    program = scratch / "program"
    build(compiler, "-std=c99", "-Wall", "-Wextra", "-Werror", "-O0", "-I", release / "include", "-I", scratch,
          release / "program.c", "-Wl,-z,now", *files, "-o", program)
    _, imports = run("nm", "--undefined-only", "--without-symbol-versions", program)
    uncalled = names - set(re.findall(r"U (\w+)$", imports, flags=re.M))
    if uncalled:
        sys.exit(f"{release / 'program.c'} does not call {' '.join(sorted(uncalled))}")
    return program


def faults_of_run(program, libraries):
    code, said = run(program, env={**os.environ, "LD_LIBRARY_PATH": str(libraries)})
    print(said, end="")
    return [f"the program fails with the libraries of today (status {code})"] if code != 0 else []


def check(release, libraries, include, compiler):
    faults = moved_facts(release, include, compiler)
    with tempfile.TemporaryDirectory() as scratch:
        faults += faults_of_run(build_program(release, compiler, pathlib.Path(scratch)), libraries)
    if faults:
        print(f"A program that was built for {release.name} does not run with these libraries (see docs/abi.md):",
              *faults, sep="\n  ")
    return bool(faults)


def main():
    task, release, libraries, include, compiler = sys.argv[1:]
    release, libraries, include = (pathlib.Path(path).resolve() for path in (release, libraries, include))
    if task == "freeze":
        return freeze(release, libraries, include)
    return check(release, libraries, include, compiler)


if __name__ == "__main__":
    sys.exit(main())
