"""Holds the Content-Security-Policy of tools/vesk/page.html to the style and the script that stand in it.

    page_hashes.py PAGE [--write]     looks, or puts the right hashes in
"""

import base64
import hashlib
import pathlib
import re
import sys


def hash_of(page, element):
    (content,) = re.findall(rf"<{element}>(.*?)</{element}>", page, flags=re.S)
    return "sha256-" + base64.b64encode(hashlib.sha256(content.encode()).digest()).decode()


def main(path, write):
    page = pathlib.Path(path).read_text(encoding="utf-8")
    right = page
    for element in ("style", "script"):
        right, count = re.subn(rf"({element}-src )'[^']*'", rf"\1'{hash_of(page, element)}'", right)
        if count != 1:
            sys.exit(f"{path}: {count} times {element}-src")
    if write:
        pathlib.Path(path).write_text(right, encoding="utf-8")
    elif right != page:
        sys.exit(f"{path}: its style or script has changed, its hashes have not; {pathlib.Path(__file__).name} --write does it")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:] == ["--write"])
