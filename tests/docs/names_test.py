"""Does names.py see a name of nothing?"""

import pathlib
import sys
import tempfile
import unittest

import names

RIGHT = """`cmake --build --preset release --target site`, `tests/docs/names.py`, `tests/docs/`,
`inventory_db/inventory_db.symbols`, `tests/abi/*.txt`, `tests/golden/TYPE/SITUATION.hex`, `build/release/anything`

```sh
cmake --preset debug
sudo apt-get install cmake g++
```
"""


class Names(unittest.TestCase):
    def missing(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "page.md"
            path.write_text(text, encoding="utf-8")
            count, wrong = names.missing(path, names.known_names())
        return count, [line.partition("there is no ")[2] for line in wrong]

    def test_right_names_pass(self):
        self.assertEqual(self.missing(RIGHT), (10, []))

    def test_each_wrong_name_is_seen(self):
        for right, wrong, what in (("preset release", "preset relaese", "preset relaese"),
                                   ("target site", "target sight", "target sight"),
                                   ("tests/docs/names.py", "tests/docs/nanes.py", "path tests/docs/nanes.py"),
                                   ("tests/abi/*.txt", "tests/abi/*.text", "path tests/abi/*.text"),
                                   ("SITUATION.hex", "SITUATION.bin", "path tests/golden/TYPE/SITUATION.bin"),
                                   ("preset debug", "preset bug", "preset bug"),
                                   ("install cmake", "install camke", "package camke")):
            with self.subTest(wrong):
                self.assertEqual(self.missing(RIGHT.replace(right, wrong)), (10, [what]))


if __name__ == "__main__":
    sys.exit(unittest.main())
