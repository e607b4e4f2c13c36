#!/usr/bin/env python3
"""What doxygen reads in place of a page or a public header of the project.

    filter.py FILE     prints it in doxygen's own terms
    filter.py --list   prints the pages and headers of the site, one a line

Pages are plain Markdown, whose links lead to files, and headers have plain comments: both are read by people first. Here
links become references, headings get the names that a git host gives them, and comments become doxygen's."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = ["docs/*.md", "examples/*.md", "examples/*/README.md", "fuzz/README.md", "CHANGELOG.md", "CONTRIBUTING.md",
         "SECURITY.md"]
HEADERS = ["runtime/vesk_*.h", "drin_eid/*.h", "inventory_db/*.h", "client_service/*.h", "toolkit/vesk_*.h", "text/vesk_*.h",
           "view/*.hpp"]
FENCE = re.compile(r"^```\S*\n.*?^```$", flags=re.S | re.M)
CODE_SPAN = re.compile(r"(`+)(?!`)(.*?)(?<!`)\1(?!`)", flags=re.S)


def files(patterns):
    return sorted(path for pattern in patterns for path in ROOT.glob(pattern))


def in_order(pages):
    """In the order in which the first page names them."""
    first = ROOT / "docs/README.md"
    named = re.findall(r"\]\(([^)#]+)", first.read_text(encoding="utf-8"))
    order = [first, *((first.parent / name).resolve() for name in named)]
    return sorted(pages, key=lambda page: order.index(page) if page in order else len(order))


# ---- Pages ----

def slug(heading):
    """The name that git hosts give a heading."""
    plain = re.sub(r"\[(.*?)\]\(.*?\)", r"\1", heading).replace("`", "")
    return re.sub(r"[^\w\- ]", "", plain.strip().lower()).replace(" ", "-")


def label(page):
    """The name of a page on the site; the first one is doxygen's index."""
    if page == ROOT / "docs/README.md":
        return "index"
    if page.parent == ROOT:  # SECURITY.md is not docs/security.md
        return f"project-{page.stem.lower()}"
    return (page.parent.name if page.name == "README.md" else page.stem).lower()


def without_code(text):
    """A text in which blocks and spans of code are numbers between NULs, and how to get them back."""
    kept = []

    def keep(match):
        kept.append(match.group())
        return f"\0{len(kept) - 1}\0"

    def restore(changed):
        while "\0" in changed:
            changed = re.sub(r"\0(\d+)\0", lambda match: kept[int(match.group(1))], changed)
        return changed

    return CODE_SPAN.sub(keep, FENCE.sub(keep, text)), restore


def filter_page(page):
    text, restore = without_code(page.read_text(encoding="utf-8"))
    used = set()

    def link(match):
        words, target = match.groups()
        if "://" in target:
            return match.group()
        file, _, anchor = target.partition("#")
        path = (page.parent / file).resolve() if file else page
        if path in files(PAGES):
            return f"[{words}](@ref {label(path)}{'-' + anchor if anchor else ''})"
        if path in files(HEADERS):
            return f"[{words}](@ref {path.name})"
        return words if "\0" in words or words == path.name else f"{words} (`{path.relative_to(ROOT)}`)"  # not on the site

    def heading(match):
        level, words = match.groups()
        if level == "#":
            return match.group() if label(page) == "index" else f"# {words} {{#{label(page)}}}"
        name = slug(restore(words))
        while name in used:
            name += "-1"
        used.add(name)
        return f"{level} {words} {{#{label(page)}-{name}}}"

    text = re.sub(r"(?<!!)\[([^\]]*)\]\(([^)\s]*)\)", link, text)
    text = re.sub(r"^(#+) (.*)$", heading, text, flags=re.M)
    # Doxygen begins a block of code by a name in braces, and knows no "console".
    text = restore(text)
    return re.sub(r"^```(\S+)\n", lambda match: f"```{{.{'py' if match.group(1) == 'python' else match.group(1)}}}\n", text,
                  flags=re.M)


# ---- Headers ----

COMMENT = re.compile(r"/\*.*?\*/", flags=re.S)
SECTION = re.compile(r"[=-]{4} (.*?) [=-]{4,}")
ARGUMENT = re.compile(r"^ {2}(\S+(?: or \S+)?) {2,}(\S.*)$")
PROTOTYPE = re.compile(r"^(?:uint64_t|int32_t|void) vesk_T_\w+\(", flags=re.M)


def comment_lines(comment):
    """The lines of a comment without its stars."""
    inner = comment[2:-2].rstrip()
    return [re.sub(r"^ *\* ?", "", line) if number else line.removeprefix(" ") for number, line in
            enumerate(inner.split("\n"))]


def escape(line):
    text, restore = without_code(line)
    return restore(re.sub(r"([<>@\\#%])", r"\\\1", text))


def documentation(lines):
    """The text of a comment in doxygen's terms: prose as it is, but its tables of arguments lists, its prototypes headings."""
    result = []
    in_table = in_prototype = False
    for line in lines:
        if PROTOTYPE.match(line):
            result += ["", "### {0} {{#{1}}}".format(*re.search(r"vesk_(T_\w+)", line).group(0, 1)), "", "```{.c}"]
            in_prototype = True
        argument = ARGUMENT.match(line)
        section = SECTION.match(line)
        if in_prototype:
            result.append(line)
            if line.endswith(";"):
                result += ["```", ""]
                in_prototype = False
        elif section:
            result += [f"## {section.group(1)}", ""]
        elif argument and not line.startswith("   "):
            result.append(f"- `{argument.group(1)}` {escape(argument.group(2))}")
            in_table = True
        elif in_table and line.startswith("   "):
            result.append("  " + escape(line.strip()))
        elif line.startswith("    "):
            result.append(line)
        else:
            if in_table and line:
                result.append("")
            in_table = in_table and not line
            result.append(escape(line))
    return result


def generated_comments(text):
    """What is left to say of members and enumerators that say it by their names alone."""
    text = re.sub(r"^( {4}uint8_t +present\[\d+\];)$", r"\1 /* the presence bits */", text, flags=re.M)
    text = re.sub(r"^( {4}uint64_t +(\w+)_length;)$", r"\1 /* bytes of \2 */", text, flags=re.M)
    text = re.sub(r"^( {4}uint32_t +(\w+)_count;)$", r"\1 /* elements of \2 */", text, flags=re.M)
    text = re.sub(r"/\* (\d+), bit (\d+)(;?.*?) \*/", r"/* field number \1, presence bit \2\3 */", text)
    text = re.sub(r"^enum (\w+)_presence \{", r"/* The presence bits of \1. */\nenum \1_presence {", text, flags=re.M)
    text = re.sub(r"^(#define (VESK_\w+)_(STRUCTURE_SIZE|LONGEST_ENCODING|MEMORY_PER_BYTE) .*)$",
                  lambda match: f"{match[1]} /* of {match[2].lower()}, in bytes; vesk_sizes.h says what it counts */",
                  text, flags=re.M)
    return re.sub(r"^( {4}VESK_\w+ = (\d+),?)$", r"\1 /* presence bit \2 */", text, flags=re.M)


def member_comments(text):
    """A member without a comment is one of those that the comment before it is about."""
    comment = None
    lines = []
    for line in text.split("\n"):
        if line.startswith(("typedef struct", "}")):
            comment = None
        elif line.startswith("    /* "):
            comment = line.strip()[3:].removesuffix("*/")
        elif match := re.search(r"; +/\* (.*?)(?:\*/)?$", line):
            comment = match.group(1)
        elif comment and re.match(r" {4}[\w ]+\*? *\w+(\[\w+\])?;$", line):
            line += f" /* with those before it: {comment.strip()} */"
        lines.append(line)
    return "\n".join(lines)


def filter_header(path):
    text = path.read_text(encoding="utf-8")
    if text.startswith("/* Generated"):
        text = generated_comments(text)
    text = member_comments(text)
    result = []
    at = 0
    guard = text.index("#ifndef")
    last = None  # the comment that the declarations below it share
    for match in COMMENT.finditer(text):
        code = text[at:match.start()]
        result.append(share(code, last))
        lines = comment_lines(match.group())
        line_start = text.rfind("\n", 0, match.start()) + 1
        before = text[line_start:match.start()].strip()
        after = text[match.end():match.end() + 2]
        lines[0] = lines[0].strip()
        is_section = SECTION.match(lines[0]) and not (after[:1] == "\n" and after[1:] not in "\n#")  # not a declaration's
        is_file = match.start() < guard or is_section
        if before:
            result.append("/**< " + " ".join(filter(None, (escape(line.strip()) for line in lines))) + " */")
        elif is_file:
            result.append("/** @file\n" + "\n".join(documentation(lines)) + "\n*/")
        else:
            if SECTION.match(lines[0]):
                lines = lines[2:]
            indent = match.start() - line_start
            # What is more than a line has a page of its own.
            more = "" if indent else f"\n\nDeclared in `<vesk/{path.name}>`{contract_of(text[match.end():])}."
            result.append("/** " + "\n".join(documentation(lines)) + more + "\n*/")
            if not indent:
                last = result[-1]
        at = match.end()
    result.append(share(text[at:], last))
    return "".join(result)


def filter_cpp_header(path):
    """Of the view: its public part, and no functions that there are not."""
    text = path.read_text(encoding="utf-8")
    text = re.sub(r"^namespace detail \{.*?^\}  // namespace detail\n|^private:\n.*?(?=^\};)", "", text, flags=re.S | re.M)
    text = re.sub(r"^// ={4}.*\n|^.* = delete;.*\n", "", text, flags=re.M)
    result = ["/// @file"]
    comment = []  # of the declaration before, which those that follow without a blank line share
    before = ""
    for line in text.split("\n"):
        match = re.match(r"( {4})?//(?: (.*))?$", line)
        trailing = re.match(r"( {4}[^/\s].*?) {2,}// (?!NOLINT)(.*)$", line)
        indent = "    " if line.startswith("    ") else ""
        begins = re.match(indent + r"[\w\[]", line)
        if match:
            if not re.match(r" *//", before):
                comment = []
            words = match.group(2) or ""
            comment.append(f"{indent}/// {words if words.startswith('    ') else escape(words)}")
        elif trailing:
            result.append(f"{trailing.group(1)} ///< {escape(trailing.group(2))}")
        else:
            if begins and re.match(r" *//", before):  # what is more than a line has a page of its own
                comment += ["///", f"/// Declared in `<vesk/{path.name}>`."]
            if re.match(r" *//", before) or (begins and before.startswith(indent) and before.endswith((";", "}"))):
                result += comment
            if not line or line.endswith(":"):
                comment = []
            result.append(line)
        before = re.sub(r" *// NOLINT.*", "", line)
    return "\n".join(result)


def contract_of(declaration):
    """What belongs to a declaration: the rules of a type's function, or the functions of a type."""
    match = re.match(r"\nVESK_API \w+ vesk_\w+_(encode_ext|decode_ext|duplicate|free_ext)\(", declaration)
    if match:
        return f"; its rules are those of [vesk_T_{match.group(1)}](@ref T_{match.group(1)})"
    match = re.match(r"\ntypedef struct (\w+) \{.*?^    uint8_t +present\[", declaration, flags=re.S | re.M)
    if match and "}" not in match.group():
        functions = ", ".join(f"{match.group(1)}_{name}()" for name in ("encode_ext", "decode_ext", "duplicate", "free_ext"))
        return f", with its functions {functions}"
    return ""


def share(code, comment):
    """Gives the comment to each function or macro that follows the commented one without a blank line."""
    if comment is None:
        return code
    return re.sub(r"(?<=[;}]\n)(?=(?:static inline|VESK_API) )|(?<=\n)(?<!\n\n)(?=#define VESK_(?:(?:UN)?MARK|VERSION))",
                  lambda _: comment + "\n", code)


def main(argument):
    if argument == "--list":
        print("\n".join(map(str, in_order(files(PAGES)) + files(HEADERS))), end="")
        return
    path = pathlib.Path(argument).resolve()
    print({".md": filter_page, ".hpp": filter_cpp_header}.get(path.suffix, filter_header)(path), end="")


if __name__ == "__main__":
    main(sys.argv[1])
