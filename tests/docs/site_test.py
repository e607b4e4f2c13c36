"""Does the making of the site fail where something is wrong? By the settings in VESK_DOXYFILE, with a small header and page."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

DOXYFILE = pathlib.Path(os.environ["VESK_DOXYFILE"])
HEADER = """/* A header. */
#ifndef A_H
#define A_H
/* Adds two numbers.
 *
 *   a  one of them, below <limits>
 *   b  the other, 100 % yours */
VESK_API int vesk_add(int a, int b);
/* A pair. */
typedef struct vesk_pair {
    int a; /* the first */
    int b;
} vesk_pair;
#endif
"""
VIEW = """// A view.
#ifndef A_HPP
#define A_HPP
namespace vesk {
namespace detail {
int hidden();
}  // namespace detail
// A pair of <numbers>.
class pair {
public:
    // The first.
    int first() const;
    int also() const;

    pair(const pair&) = delete;  // there is one

    // The second.
    int second() const;

private:
    int first_;
};
}  // namespace vesk
#endif
"""
PAGE = "# Title\n\n## Part\n\nSee `a.h`.\n\n```c\nputs(\"\\nthe end\");\n```\n"


class Site(unittest.TestCase):
    def make(self, header=HEADER, page=PAGE, view=VIEW):
        """Whether the site is made, what doxygen says, and the text of its pages."""
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "vesk_a.h").write_text(header, encoding="utf-8")
            (folder / "vesk_a.hpp").write_text(view, encoding="utf-8")
            (folder / "page.md").write_text(page, encoding="utf-8")
            # The last setting of a name counts.
            settings = re.sub(r"\\\n", " ", DOXYFILE.read_text(encoding="utf-8"))
            settings += f"\nINPUT = {folder}\nUSE_MDFILE_AS_MAINPAGE =\nOUTPUT_DIRECTORY = {folder}\n"
            (folder / "Doxyfile").write_text(settings, encoding="utf-8")
            done = subprocess.run(["doxygen", folder / "Doxyfile"], capture_output=True, text=True, check=False)
            html = "".join(re.sub(r"<[^>]*>", "", path.read_text(encoding="utf-8")) for path in folder.glob("site/*.html"))
        return done.returncode == 0, done.stderr, html

    def test_right_sources_make_a_site(self):
        made, said, html = self.make()
        self.assertTrue(made, said)
        self.assertIn("below &lt;limits&gt;", html)
        self.assertIn("with those before it: the first", html)
        self.assertIn('puts("\\nthe end")', html.replace("&quot;", '"'))

    def test_view_has_its_public_part_and_comments_that_are_shared(self):
        made, said, html = self.make()
        self.assertTrue(made, said)
        self.assertIn("A pair of &lt;numbers&gt;.", html)
        self.assertEqual(html.count("Declared in &lt;vesk/vesk_a.hpp&gt;"), 4)  # the class and its three functions
        self.assertNotIn("hidden", html)

    def test_function_of_a_view_without_a_comment_is_an_error(self):
        made, said, _ = self.make(view=VIEW.replace("    // The second.\n", ""))
        self.assertFalse(made)
        self.assertIn("Member second() const (function) of class vesk::pair", said)

    def test_function_without_a_comment_is_an_error(self):
        made, said, _ = self.make(header=HEADER.replace("#endif", "\nVESK_API int vesk_subtract(int a, int b);\n#endif"))
        self.assertFalse(made)
        self.assertIn("vesk_subtract", said)

    def test_member_without_a_comment_is_an_error(self):
        made, said, _ = self.make(header=HEADER.replace(" /* the first */", ""))
        self.assertFalse(made)
        self.assertIn("Member a (variable) of struct vesk_pair", said)

    def test_reference_to_nothing_is_an_error(self):
        made, said, _ = self.make(page=PAGE + "\n[a](@ref nothing)\n")
        self.assertFalse(made)
        self.assertIn("nothing", said)


if __name__ == "__main__":
    sys.exit(unittest.main())
