"""Looks up what pages name in code: names.py [PAGE...], all pages of the tree if none is named.

A preset has to be one of CMakePresets.json, a target one that a CMakeLists.txt makes, a path that begins with a folder of the
tree a file or folder there, a package that is installed one of scripts/packages.txt. A word in capitals in a path stands for
any. What is made by building is not looked for."""

import json
import pathlib
import re
import subprocess
import sys

from links import every_page

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE = re.compile(r"^```\S*\n(.*?)^```$|(?<!`)`([^`\n]+)`(?!`)", flags=re.S | re.M)
PRESET = re.compile(r"--preset[ =]([\w-]+)")
TARGET = re.compile(r"--target ([\w/-]+)")
TARGETS = re.compile(r"add_(?:custom_target|executable|library)\(([\w-]+)|^vesk_add_\w+\(([\w-]+)", flags=re.M)


INSTALL = re.compile(r"apt-get install (\w[\w+. -]*)")


def known_names():
    presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
    files = subprocess.run(["git", "ls-files"], cwd=ROOT, capture_output=True, text=True, check=True).stdout.split("\n")
    build = [ROOT / name for name in files if name.endswith(("CMakeLists.txt", ".cmake"))]
    targets = {name for path in build for match in TARGETS.findall(path.read_text(encoding="utf-8")) for name in match}
    packages = set((ROOT / "scripts/packages.txt").read_text(encoding="utf-8").split("\n"))
    named = {preset["name"] for key in presets if key.endswith("Presets") for preset in presets[key]}
    return named, targets, set(files), packages


def is_there(path, files):
    pattern = "".join(r"[^/]*" if part == "*" else r"[\w.-]+" if part.isupper() and part != "README" and "CMake" not in part
                      else re.escape(part) for part in re.split(r"(\*|[A-Z]{4,})", path.rstrip("/")))
    return any(re.match(pattern + "(/|$)", file) for file in files)


def missing(page, names):
    """How many names were looked up, and a line for each that is not there."""
    presets, targets, files, packages = names
    folders = {file.partition("/")[0] for file in files if "/" in file}
    count, wrong = 0, []
    for match in CODE.finditer(page.read_text(encoding="utf-8")):
        code = match.group(1) or match.group(2)
        found = [("preset", name, name in presets) for name in PRESET.findall(code)]
        found += [("target", name, name in targets) for name in TARGET.findall(code) if "-x86-" not in name and "/" not in name]
        found += [("package", name, name in packages) for line in INSTALL.findall(code) for name in line.split()]
        if match.group(2):
            path = re.fullmatch(r"([\w-]+)/[\w./*-]*", code)
            if path and path.group(1) in folders:
                found.append(("path", code, is_there(code, files)))
        count += len(found)
        wrong += [f"{page}: there is no {what} {name}" for what, name, is_known in found if not is_known]
    return count, wrong


def main(pages):
    names = known_names()
    pages = [pathlib.Path(page) for page in pages] or every_page()
    results = [missing(page, names) for page in pages]
    wrong = [line for _, lines in results for line in lines]
    count = sum(count for count, _ in results)
    print("\n".join([*wrong, f"{count} names on {len(pages)} pages, {len(wrong)} of them are of nothing"]))
    return bool(wrong) or not count


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
