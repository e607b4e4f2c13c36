"""Follows every link.

    links.py [PAGE...]     of Markdown pages, all of the tree if none is named: to files, relative to the page, and to
                           headings, by the names of git hosts
    links.py --site DIR    of the HTML pages in DIR, and of what they load

Says where a link leads nowhere, and which page of docs/ the first of them, docs/README.md, does not lead to. Links to hosts are
none of its affair."""

import html.parser
import pathlib
import re
import subprocess
import sys
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "docs/site"))
from filter import slug, without_code  # noqa: E402  pylint: disable=wrong-import-position,no-name-in-module


def every_page():
    names = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split("\n")
    return [ROOT / name for name in names if name and (ROOT / name).exists()]


class Markdown:
    def __init__(self, path):
        text, restore = without_code(path.read_text(encoding="utf-8"))
        self.links = re.findall(r"\]\(([^)\s]+)(?:\s+\"[^\"]*\")?\)", text)
        self.names = set()
        for heading in re.findall(r"^#+ (.*)$", text, flags=re.M):
            name = slug(restore(heading))
            count = 0
            while name + (f"-{count}" if count else "") in self.names:
                count += 1
            self.names.add(name + (f"-{count}" if count else ""))


class Html(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.names = [], set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.names.update(filter(None, (attributes.get("id"), attributes.get("name") if tag == "a" else None)))
        self.links += [value for key in ("href", "src", "data") if (value := attributes.get(key))]


def follow(paths, read):
    """How many links were followed, and a line for each that leads nowhere."""
    known = {path: read(path) for path in paths}
    count, wrong = 0, []
    for path in paths:
        for link in known[path].links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            count += 1
            target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            if not target.exists():
                wrong.append(f"{path}: {link}: there is no such file")
                continue
            if not parts.fragment or target.suffix != path.suffix:
                continue
            if target not in known:
                known[target] = read(target)
            if urllib.parse.unquote(parts.fragment) not in known[target].names:
                wrong.append(f"{path}: {link}: there is no such heading")
    return count, wrong


def not_led_to(folder):
    """A line for each page of a folder that its first page does not name."""
    first = folder / "README.md"
    named = {(folder / link.partition("#")[0]).resolve() for link in Markdown(first).links} | {first.resolve()}
    return [f"{first}: does not lead to {path.name}" for path in sorted(folder.glob("*.md")) if path.resolve() not in named]


def main(arguments):
    if arguments[:1] == ["--site"]:
        paths, read = sorted(pathlib.Path(arguments[1]).resolve().rglob("*.html")), Html
    else:
        paths, read = [pathlib.Path(path).resolve() for path in arguments] or every_page(), Markdown
    count, wrong = follow(paths, read)
    if not arguments:
        wrong += not_led_to(ROOT / "docs")
    print("\n".join([*wrong, f"{count} links on {len(paths)} pages, {len(wrong)} mistakes"]))
    return bool(wrong) or not count


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
