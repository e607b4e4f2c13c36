"""What the tests of the command vesk share: each has a folder of its own."""

import pathlib
import tempfile
import unittest


class FolderCase(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
