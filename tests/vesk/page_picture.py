"""Takes the picture of the page of `vesk map --html` that docs/vesk.md shows: page_picture.py PROGRAM DOCS

The message is the one that docs/vesk.md looks at.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

import browser as a_browser


def main(program, docs):
    program, docs = pathlib.Path(program).resolve(), pathlib.Path(docs)
    digits = re.search(r"^\$ cat answer\.hex\n(.*?)^```", (docs / "vesk.md").read_text(encoding="utf-8"), flags=re.S | re.M)
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch)
        (folder / "answer.bin").write_bytes(bytes.fromhex(digits.group(1)))
        subprocess.run([program, "map", "--html", "answer.html", "resp_inv_data", "answer.bin"], cwd=folder, check=True)
        browser = a_browser.start(1280, 760)
        try:
            a_browser.open_page(browser, folder / "answer.html")
            browser.save_screenshot(str(docs / "vesk_map.png"))
        finally:
            browser.quit()


if __name__ == "__main__":
    main(*sys.argv[1:])
