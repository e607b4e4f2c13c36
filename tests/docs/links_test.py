"""Does links.py see a link that leads nowhere?"""

import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

import links

PAGE = "# A page\n\n## What is `here`, and what\n\n[a](#what-is-here-and-what) [b](other.md#there) ![c](d.svg) " \
    "[e](https://nowhere.example/)\n"
OTHER = "# Other\n\n## There\n\n## There\n\n`[no link](nowhere.md)`\n\n```text\n[none](nowhere.md)\n```\n"
HTML = '<a href="two.html#name">a</a><img src="p.png"><a href="https://nowhere.example/">b</a>'


class Links(unittest.TestCase):
    def said(self, changes, *arguments):
        files = {"page.md": PAGE, "other.md": OTHER, "d.svg": "", "one.html": HTML, "two.html": '<p id="name">', "p.png": "",
                 **changes}
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()) as printed:
            for name, text in files.items():
                if text is not None:
                    (pathlib.Path(folder) / name).write_text(text, encoding="utf-8")
            status = links.main([argument.replace("HERE", folder) for argument in arguments])
        return status, printed.getvalue()

    def pages(self, **changes):
        return self.said({name.replace("_", "."): text for name, text in changes.items()}, "HERE/page.md", "HERE/other.md")

    def site(self, **changes):
        return self.said({name.replace("_", "."): text for name, text in changes.items()}, "--site", "HERE")

    def test_right_pages_pass(self):
        self.assertEqual(self.pages(), (False, "3 links on 2 pages, 0 mistakes\n"))
        self.assertEqual(self.pages(page_md=PAGE + "[f](other.md#there-1)")[0], False)

    def test_missing_file_is_seen(self):
        self.assertIn("d.svg: there is no such file", self.pages(d_svg=None)[1])
        self.assertTrue(self.pages(d_svg=None)[0])

    def test_missing_heading_is_seen(self):
        self.assertIn("other.md#there: there is no such heading", self.pages(other_md="# Other\n")[1])
        self.assertIn("#what-is-here-and-what: there is", self.pages(page_md=PAGE.replace("is `here`", "was `here`"))[1])

    def test_pages_without_a_link_are_seen(self):
        self.assertTrue(self.pages(page_md="# A page\n")[0])

    def test_page_that_the_first_does_not_lead_to_is_seen(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            for page, text in (("README.md", "[a](one.md#part)"), ("one.md", "[b](two.md)"), ("two.md", "")):
                (folder / page).write_text(text, encoding="utf-8")
            self.assertEqual(links.not_led_to(folder), [f"{name}/README.md: does not lead to two.md"])

    def test_site_is_followed(self):
        self.assertEqual(self.site(), (False, "2 links on 2 pages, 0 mistakes\n"))
        self.assertIn("p.png: there is no such file", self.site(p_png=None)[1])
        self.assertIn("two.html#name: there is no such heading", self.site(two_html="<p>")[1])


if __name__ == "__main__":
    sys.exit(unittest.main())
