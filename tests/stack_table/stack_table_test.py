"""Does the computation of the stack see what it says it sees? It is given small libraries whose stack is known.

    stack_table_test.py STACK_TABLE COMPILER
"""

import os
import re
import subprocess
import sys
import tempfile
import textwrap
import unittest

STACK_TABLE, COMPILER = sys.argv[1:]

# The exported functions of a type. A test replaces what encode does; fill(n) uses n bytes of stack.
LIBRARY = """
template <int Size> [[gnu::noinline]] int fill() {
    volatile char bytes[Size];
    for (int i = 0; i < Size; ++i) bytes[i] = static_cast<char>(i);
    return bytes[Size / 2];
}
%s
extern "C" [[gnu::visibility("default")]] int vesk_small_encode_ext(int n) { (void)n; %s }
extern "C" [[gnu::visibility("default")]] int vesk_small_decode_ext() { return 0; }
extern "C" [[gnu::visibility("default")]] int vesk_small_duplicate() { return 0; }
extern "C" [[gnu::visibility("default")]] int vesk_small_free_ext() { return 0; }
"""

PLENTY = 100000


class StackTable(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def check(self, body, functions="", rows=None, mode="compare"):
        """Status and output of a check of a library with these functions, whose encode has this body."""
        self.write("small.cpp", LIBRARY % (textwrap.dedent(functions), body))
        self.write("small.symbols", "".join(f"vesk_small_{each}\n"
                                            for each in ("encode_ext", "decode_ext", "duplicate", "free_ext")))
        rows = rows if rows is not None else [f"| `vesk_small` | {PLENTY} | {PLENTY} | {PLENTY} | {PLENTY} |"]
        self.write("stack.md", "\n".join(["| Type | encode | decode | duplicate | free |", "|---|---|---|---|---|",
                                          *rows, "", "The end."]) + "\n")
        flags = ["-O2", "-fPIC", "-fno-stack-protector", "-fno-exceptions", "-fvisibility=hidden", "-w"]
        subprocess.run([COMPILER, *flags, "-fcallgraph-info=su", "-c", "small.cpp", "-o", "small.cpp.o"],
                       cwd=self.folder, check=True)
        subprocess.run([COMPILER, "-shared", "small.cpp.o", "-o", "small.so"], cwd=self.folder, check=True)
        done = subprocess.run([sys.executable, STACK_TABLE, mode, "stack.md", "small.cpp", "--", "small.symbols", "--",
                               "small.so", "small.cpp.o"], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
        return done.returncode, done.stdout

    def depth_of(self, body, functions=""):
        status, output = self.check(body, functions, rows=[], mode="write")
        self.assertEqual((status, output), (0, ""))
        with open(self.path("stack.md"), encoding="utf-8") as file:
            return int(re.search(r"^\| `vesk_small` \| (\d+)", file.read(), re.MULTILINE)[1])

    def expect_no_bound(self, why, body, functions=""):
        status, output = self.check(body, functions)
        self.assertEqual(status, 1, output)
        self.assertRegex(output, f"^no bound: .*{why}")

    def test_deepest_path_counts(self):
        empty = self.depth_of("return 0;")
        small = self.depth_of("return fill<200>() + 1;")
        both = self.depth_of("return fill<200>() + fill<3000>();")
        self.assertLess(empty, 200)
        self.assertTrue(200 < small < 400, small)
        self.assertTrue(3000 < both < 3200, both)

    def test_enough_is_enough_and_one_less_is_not(self):
        depth = self.depth_of("return fill<3000>() + 1;")
        for says, status in ((depth, 0), (depth - 1, 1)):
            row = f"| `vesk_small` | {says} | {PLENTY} | {PLENTY} | {PLENTY} |"
            self.assertEqual(self.check("return fill<3000>() + 1;", rows=[row])[0], status)
        _, output = self.check("return fill<3000>() + 1;", rows=[row])
        self.assertRegex(output, f"vesk_small_encode_ext needs {depth} bytes, the table says {depth - 1}:")
        self.assertRegex(output, r"\d{4}  int fill<3000>\(\)", "the path is shown")

    def test_missing_row_and_row_of_no_type(self):
        self.assertRegex(self.check("return 0;", rows=[])[1], "the table says 0")
        row = f"| `vesk_{{}}` | {PLENTY} | {PLENTY} | {PLENTY} | {PLENTY} |"
        status, output = self.check("return 0;", rows=[row.format("small"), row.format("other")])
        self.assertEqual((status, output.splitlines()[0]), (1, "there is no type vesk_other"))

    def test_function_handed_as_an_argument_counts(self):
        functions = """
            using Call = int (*)(int);
            [[gnu::noipa]] int large(int n) { return fill<3000>() + n; }
            [[gnu::noipa]] int inner(Call call, int n) { return call(n) + 1; }
            [[gnu::noipa]] int outer(int n, Call call) { return inner(call, n) + 1; }
            [[gnu::visibility("default")]] int other(int n) { return outer(n, large) + 1; }"""
        self.assertGreater(self.depth_of("return outer(n, large) + 1;", functions), 3000)
        small = "[[gnu::noipa]] int little(int n) { return n + 1; }"
        self.assertLess(self.depth_of("return outer(n, little) + 1;", functions + small), 500,
                        "what somebody else hands on is not called here")

    def test_recursion_has_no_bound(self):
        self.expect_no_bound("recursion", "return again(n) + 1;",
                             "[[gnu::noipa]] int again(int n) { return n < 2 ? n : again(n - 1) * again(n - 2); }")

    def test_frame_without_bound(self):
        self.expect_no_bound("frame without bound", "return grow(n) + 1;", """
            [[gnu::noipa]] int grow(int n) {
                volatile char* bytes = static_cast<char*>(__builtin_alloca(n));
                bytes[0] = 1;
                return bytes[n / 2];
            }""")

    def test_function_in_a_table_counts(self):
        functions = """
            [[gnu::noipa]] int vesk_little(int n) { return n + 1; }
            [[gnu::noipa]] int vesk_large(int n) { return fill<3000>() + n; }
            static int (*const vesk_table[])(int) = {vesk_little, vesk_large};
            static int (*const vesk_small_table[])(int) = {vesk_little, vesk_little};
            [[gnu::visibility("default")]] int other(int n) { return vesk_table[n & 1](n) + 1; }"""
        self.assertGreater(self.depth_of("return vesk_table[n & 1](n) + 1;", functions), 3000)
        self.assertLess(self.depth_of("return vesk_small_table[n & 1](n) + 1;", functions), 500)

    def test_function_handed_in_a_structure_counts(self):
        functions = """
            struct Empty {};
            struct Inner {
                int (*call)(int);
            };
            struct Outer {
                Inner inner;
            };
            [[gnu::noipa]] int vesk_large(int n) { return fill<3000>() + n; }
            static constexpr Outer vesk_outer{{vesk_large}};
            [[gnu::noipa]] int use(const Inner& inner) { return inner.call(1) + 1; }
            [[gnu::noipa]] int pass(const Outer& outer) { return use(outer.inner) + 1; }"""
        self.assertGreater(self.depth_of("return pass(vesk_outer) + 1;", functions), 3000)

    MEMBERS = """
            namespace vesk {
            struct Noted {
                int (*call)(int) = nullptr;
            };
            struct Type {
                int (*note)(Noted&);
                int (*write)(int);
            };
            template <class T> [[gnu::noipa]] int little(int n) { return n + 1; }
            template <class T> [[gnu::noipa]] int large(int n) { return fill<3000>() + n; }
            template <class T> [[gnu::noipa]] int note_it(Noted& noted) {
                noted.call = CALLED<T>;
                return 1;
            }
            constexpr Type make() {
                Type type{};
                type.note = note_it<int>;
                type.write = WRITES<int>;
                return type;
            }
            constexpr Type type_of = make();
            [[gnu::noipa]] int use(Noted& noted) {
                return noted.call(1) + 1;
            }
            [[gnu::noipa]] int draft(const Type& type, int n) {
                Noted noted;
                return type.note(noted) + use(noted) + n;
            }
            }"""

    def members(self, called, writes):
        return self.MEMBERS.replace("CALLED", called).replace("WRITES", writes)

    def test_member_that_is_not_called_does_not_count(self):
        depth = self.depth_of("return vesk::draft(vesk::type_of, n) + 1;", self.members("little", "large"))
        self.assertLess(depth, 500)

    def test_function_that_another_one_noted_counts(self):
        depth = self.depth_of("return vesk::draft(vesk::type_of, n) + 1;", self.members("large", "little"))
        self.assertGreater(depth, 3000)

    def test_pointer_from_nowhere(self):
        self.expect_no_bound("comes from nowhere", "return use(&n) + 1;", """
            [[gnu::noipa]] int use(const void* hidden) {
                return (*static_cast<int (*const *)(int)>(hidden))(1) + 1;
            }""")

    def test_function_of_nobody(self):
        self.expect_no_bound("gcc says nothing of it", "return somebody_elses(n) + 1;",
                             'extern "C" int somebody_elses(int n);')


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
