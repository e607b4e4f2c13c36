"""The page of `vesk map --html`, in a browser.

    page_test.py PROGRAM [CASE]
"""

import json
import pathlib
import subprocess
import sys
import unittest

import browser as a_browser
from folder_case import FolderCase
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

PROGRAM = str(pathlib.Path(sys.argv[1]).resolve())
SECONDS_FOR_A_MEBIBYTE = 3
PATIENCE = 5  # how many times as long a busy machine may take
PEMS = {"pem_list": [{"entity_common": {"f2": "psu 1", "f4": 7}, "f3": 4800}, {"f3": 4801, "f4": 2}]}
WRONG_WIRE_TYPE = b"\x1a\x00"  # of f3, a number
HOSTILE = "</script><script>document.title='taken'</script><!--<script>"


def vesk(*arguments, **more):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, check=True, timeout=120, **more).stdout


def encode(document):
    return vesk("encode", "resp_inv_data", input=json.dumps(document).encode())


def luminance(colour):
    parts = [int(colour[i:i + 2], 16) / 255 for i in (1, 3, 5)]
    linear = [part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    low, high = sorted((luminance(one), luminance(other)))
    return (high + 0.05) / (low + 0.05)


class Page(FolderCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = a_browser.start()
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        super().setUp()
        self.browser.get_log("browser")

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [], "the browser complains")

    def open(self, message, name="input.bin", theme="light"):
        """Of bytes, or of a document to encode. Returns the seconds that opening takes."""
        (self.folder / name).write_bytes(message if isinstance(message, bytes) else encode(message))
        page = self.folder / "page.html"
        vesk("map", "--html", str(page), "resp_inv_data", name, cwd=self.folder)
        return a_browser.open_page(self.browser, page, theme)

    def one(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def byte(self, offset):
        return self.one(f"#byte-{offset}")

    def row(self, name, number=0):
        rows = [row for row in self.all("#fields .row") if row.find_element(By.CSS_SELECTOR, ".name").text == name]
        return rows[number]

    def offsets(self, css_class):
        return sorted(int(byte.get_attribute("data-at")) for byte in self.all(f".byte.{css_class}"))

    def names(self, css_class):
        return [row.find_element(By.CSS_SELECTOR, ".name").text for row in self.all(f"#fields .row.{css_class}")]

    def hover(self, element):
        ActionChains(self.browser).move_to_element(element).perform()

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def focus(self, pane):
        self.browser.execute_script("document.getElementById(arguments[0]).focus()", pane)

    def spoken(self):
        return self.one("#spoken").text

    def assert_in_view(self, element):
        self.assertTrue(self.browser.execute_script(
            "const inner = arguments[0].getBoundingClientRect(), outer = arguments[0].closest('.pane').getBoundingClientRect();"
            "return inner.top >= outer.top && inner.bottom <= outer.bottom && inner.left >= outer.left", element))


class Hover(Page):
    # 5a 11 (0a 09 (12 05 psu 1) 20 07) 18 c0 25, then 5a 05 18 c1 25 20 02
    def test_byte_lights_its_bytes_and_its_field(self):
        self.open(PEMS)
        self.hover(self.byte(9))
        self.assertEqual(self.offsets("lit"), [4, 5, 6, 7, 8, 9, 10])
        self.assertEqual(self.names("lit"), ["f2"])

    def test_field_lights_its_bytes_and_those_inside_it_faintly(self):
        self.open(PEMS)
        self.hover(self.row("entity_common"))
        self.assertEqual(self.offsets("lit"), [2, 3])
        self.assertEqual(self.offsets("inside"), list(range(2, 13)))
        self.assertEqual(self.names("lit"), ["entity_common"])

    def test_mouse_that_goes_away_leaves_nothing_lit(self):
        self.open(PEMS)
        self.hover(self.byte(9))
        self.hover(self.one("h1"))
        self.assertEqual((self.offsets("lit"), self.names("lit")), ([], []))

    def test_field_whose_bytes_are_elsewhere_brings_them_into_view(self):
        self.open({"pem_list": [{"f3": 1}] * 5 + [{"entity_common": {"f2": "x" * 5000}}, {"f4": 9}]})
        self.assertEqual(self.all("#byte-5040"), [])
        self.hover(self.row("f4"))
        self.assert_in_view(self.byte(self.offsets("lit")[0]))

    def test_click_chooses_and_says_what_was_chosen(self):
        self.open(PEMS)
        self.byte(9).click()
        self.assertEqual(self.offsets("cursor"), [9])
        self.assertEqual(self.names("chosen"), ["f2"])
        self.assertEqual(self.spoken(), 'Bytes 6 to 10 (0x6 to 0xa): value of pem_list[0].entity_common.f2: "psu 1"')
        self.row("f4", 1).click()
        self.assertEqual(self.offsets("chosen"), [21, 22])


class Keyboard(Page):
    def active(self, pane):
        return self.one("#" + self.one("#" + pane).get_attribute("aria-activedescendant"))

    def test_bytes_move_by_byte_line_and_end_and_the_tree_follows(self):
        self.open(PEMS)
        self.focus("bytes")
        for key, offset, name in ((Keys.ARROW_RIGHT, 1, "pem_list[0]"), (Keys.ARROW_RIGHT, 2, "entity_common"),
                                  (Keys.ARROW_DOWN, 18, "f3"), (Keys.ARROW_LEFT, 17, "pem_list[1]"),
                                  (Keys.ARROW_UP, 1, "pem_list[0]"), (Keys.END, 22, "f4"), (Keys.ARROW_RIGHT, 22, "f4"),
                                  (Keys.HOME, 0, "pem_list[0]"), (Keys.ARROW_UP, 0, "pem_list[0]")):
            self.press(key)
            self.assertEqual((self.offsets("cursor"), self.names("chosen")), ([offset], [name]), key)
            self.assertEqual(self.active("bytes").get_attribute("id"), f"byte-{offset}")
            self.assertEqual(self.active("fields").get_attribute("aria-selected"), "true")

    def test_tree_moves_closes_and_opens_and_the_bytes_follow(self):
        self.open(PEMS)
        self.focus("fields")
        self.press(Keys.ARROW_DOWN)
        self.assertEqual((self.names("chosen"), self.offsets("chosen")), (["entity_common"], [2, 3]))
        self.assertTrue(self.spoken().startswith("Byte 2 (0x2): tag of pem_list[0].entity_common: "), self.spoken())
        rows = len(self.all("#fields .row"))
        self.press(Keys.ARROW_LEFT)
        self.assertEqual(self.active("fields").get_attribute("aria-expanded"), "false")
        self.assertEqual(len(self.all("#fields .row")), rows - 2)
        self.press(Keys.ARROW_RIGHT)
        self.assertEqual(self.active("fields").get_attribute("aria-expanded"), "true")
        self.press(Keys.ARROW_RIGHT)
        self.assertEqual(self.names("chosen"), ["f2"])
        self.press(Keys.ARROW_LEFT, Keys.ARROW_LEFT)
        self.assertEqual(self.active("fields").get_attribute("aria-expanded"), "false")
        self.press(Keys.ARROW_LEFT)
        self.assertEqual(self.names("chosen"), ["pem_list[0]"])
        self.press(Keys.END)
        self.assertEqual(self.names("chosen"), ["f4"])

    def test_byte_in_a_closed_message_lights_that(self):
        self.open(PEMS)
        self.focus("fields")
        self.press(Keys.ARROW_LEFT)
        self.hover(self.byte(9))
        self.assertEqual(self.names("lit"), ["pem_list[0]"])

    def test_everything_can_be_reached_with_tab(self):
        self.open(PEMS)
        reached = []
        for _ in range(6):
            self.press(Keys.TAB)
            reached.append(self.browser.switch_to.active_element.get_attribute("id"))
        self.assertEqual(reached[:5], ["search", "previous", "next", "bytes", "fields"])


class Search(Page):
    def find(self, text):
        self.one("body").click()
        self.press("/")
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("id"), "search")
        self.press(text)

    def test_path_is_found_and_enter_goes_on(self):
        self.open(PEMS)
        self.find("f4")
        self.assertEqual((self.one("#found").text, self.names("chosen")), ("1 of 2", ["f4"]))
        self.assertEqual(self.offsets("chosen"), [11, 12])
        self.press(Keys.ENTER)
        self.assertEqual((self.one("#found").text, self.offsets("chosen")), ("2 of 2", [21, 22]))
        self.press(Keys.ENTER)
        self.assertEqual(self.offsets("chosen"), [11, 12])
        self.press(Keys.SHIFT, Keys.ENTER)
        self.assertEqual(self.offsets("chosen"), [21, 22])

    def test_path_that_is_whole_comes_before_those_that_hold_it(self):
        self.open({"pem_list": [{"f3": 1} for _ in range(30)]})
        self.find("pem_list[2].f3")
        self.assertEqual((self.one("#found").text, self.offsets("chosen")), ("1 of 1", [10, 11]))

    def test_path_in_a_closed_message_opens_it(self):
        self.open(PEMS)
        self.focus("fields")
        self.press(Keys.ARROW_LEFT)
        self.find("pem_list[0].entity_common.f2")
        self.assertEqual(self.names("chosen"), ["f2"])

    def test_path_far_away_comes_into_view_on_both_sides(self):
        self.open({"pem_list": [{"entity_common": {"f2": "x" * 40}} for _ in range(3000)]})
        self.find("pem_list[2900].entity_common.f2")
        self.assert_in_view(self.one("#fields .row.chosen"))
        self.assert_in_view(self.one(".byte.cursor"))

    def test_path_that_is_not_there_is_said(self):
        self.open(PEMS)
        self.find("f99")
        self.assertEqual(self.one("#found").text, "no such path")


class Opening(Page):
    def assert_failing_place_is_in_view(self, offset):
        self.assertEqual(self.offsets("failing"), [offset])
        self.assert_in_view(self.byte(offset))
        self.assert_in_view(self.one("#fields .row.failing"))
        self.assertIn(f"Byte {offset} (", self.spoken())
        self.assertIn(f"at byte {offset}", self.one("#verdict").text)

    def test_failing_place_is_in_view_and_the_button_comes_back_to_it(self):
        good = encode({"pem_list": [{"entity_common": {"f2": "x" * 40}} for _ in range(1000)]})
        self.open(good + WRONG_WIRE_TYPE + good)
        self.assert_failing_place_is_in_view(len(good))
        self.focus("bytes")
        self.press(Keys.HOME)
        self.assertEqual(self.all(".byte.failing"), [])
        self.one("#failing").click()
        self.assert_failing_place_is_in_view(len(good))

    def test_message_that_decodes_has_no_such_button(self):
        self.open(PEMS)
        self.assertFalse(self.one("#failing").is_displayed())
        self.assertEqual(self.one(".badge").text, "decodes")

    def test_no_bytes_are_an_empty_message(self):
        self.open(b"")
        self.assertEqual(self.spoken(), "No bytes: an empty message.")
        self.focus("bytes")
        self.press(Keys.ARROW_DOWN, Keys.END, Keys.TAB, Keys.ARROW_DOWN, Keys.ARROW_LEFT, Keys.ARROW_RIGHT)

    def test_mebibyte_opens_in_time(self):
        element = encode({"pem_list": [{"entity_common": {"f2": "psu", "f4": 7}, "f3": 4800}]})
        for message in (b"\x5a\x00" * (1 << 19), element * ((1 << 20) // len(element))):
            message += WRONG_WIRE_TYPE
            seconds = self.open(message)
            print(f"{len(message)} bytes open in {seconds:.2f} s")
            self.assertLess(seconds, SECONDS_FOR_A_MEBIBYTE * PATIENCE)
            self.assert_failing_place_is_in_view(len(message) - 2)


class Strings(Page):
    def assert_shown_as_text(self, document, name="input.bin"):
        self.open(document, name=name)
        self.assertEqual(self.browser.title, f"{name}: {len(encode(document))} bytes of resp_inv_data")
        self.assertEqual(len(self.all("script")), 2)
        self.assertEqual(self.all("img"), [])

    def test_markup_in_a_string_is_shown_as_text(self):
        for text in (HOSTILE, "<img src=x onerror=\"document.title='taken'\">", "&lt;b&gt;&amp;", "@DATA@ @TITLE@", "]]>"):
            self.assert_shown_as_text({"pem_list": [{"entity_common": {"f2": text}}]})
            self.assertEqual(self.row("f2").find_element(By.CSS_SELECTOR, ".said").text.replace('\\"', '"'), f'"{text}"')

    def test_control_characters_in_a_string_are_escapes(self):
        self.open({"pem_list": [{"entity_common": {"f2": "a\x1b[31m\u0085\u007f\u202eb"}}]})
        self.assertEqual(self.row("f2").find_element(By.CSS_SELECTOR, ".said").text, r'"a\x1b[31m\xc2\x85\x7f\xe2\x80\xaeb"')

    def test_markup_in_the_name_of_the_file_is_shown_as_text(self):
        self.assert_shown_as_text(PEMS, name="<img src=x>&<b>")

    def test_script_that_comes_in_all_the_same_is_refused(self):
        self.open(PEMS)
        self.browser.execute_script(
            "const script = document.createElement('script'); script.textContent = 'document.title = \"taken\"';"
            "document.body.append(script);"
            "document.body.insertAdjacentHTML('beforeend', '<i onclick=\"document.title = 1\" id=\"bait\">x</i>');"
            "document.getElementById('bait').click()")
        self.assertIn("bytes of resp_inv_data", self.browser.title)
        refusals = self.browser.get_log("browser")
        self.assertTrue(refusals and all("Content Security Policy" in line["message"] for line in refusals), refusals)


class Network(Page):
    def requests(self):
        events = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]

    def test_page_asks_for_nothing_but_itself(self):
        self.requests()
        self.open(PEMS)
        self.press(Keys.TAB, Keys.ARROW_DOWN)
        urls = self.requests()
        self.assertEqual(urls, [f"file://{self.folder}/page.html"])

    def test_page_may_not_ask_even_if_it_wants(self):
        self.open(PEMS)
        answer = self.browser.execute_async_script(
            "const done = arguments[0]; fetch('http://127.0.0.1:9/').then(() => done('went out'), error => done(error.message))")
        self.assertEqual(answer, "Failed to fetch")
        refusals = self.browser.get_log("browser")
        self.assertTrue(any("Content Security Policy" in line["message"] for line in refusals), refusals)


class Themes(Page):
    def variable(self, name):
        return self.browser.execute_script(
            "return getComputedStyle(document.documentElement).getPropertyValue(arguments[0]).trim()", "--" + name)

    def test_page_is_dark_or_light_as_the_reader_prefers(self):
        for theme, is_dark in (("light", False), ("dark", True)):
            self.open(PEMS, theme=theme)
            colour = self.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
            red = int(colour[colour.index("(") + 1:].split(",")[0])
            self.assertEqual(red < 128, is_dark, colour)

    def test_contrast_of_every_text_is_at_least_that_of_aa(self):
        roles = ("tag", "length", "value", "unknown", "beyond")
        pairs = [(role, ground) for role in roles for ground in ("page", role + "-tint", "lit", "inside", "chosen")]
        pairs += [(ink, ground) for ink in ("text", "quiet") for ground in ("page", "panel", "lit", "chosen", "inside")]
        pairs += [("on-bad", "bad"), ("good", "page")]
        for theme in ("light", "dark"):
            self.open(PEMS, theme=theme)
            for ink, ground in pairs:
                ratio = contrast(self.variable(ink), self.variable(ground))
                self.assertGreaterEqual(ratio, 4.5, f"{theme}: {ink} on {ground}")
            for ground in ("page", "lit", "chosen", "panel"):  # what is no text: the mark of the focus
                self.assertGreaterEqual(contrast(self.variable("focus"), self.variable(ground)), 3, f"{theme}: {ground}")

    def test_narrow_window_has_the_bytes_above_the_fields(self):
        self.open(PEMS)
        self.browser.set_window_size(600, 900)
        self.addCleanup(self.browser.set_window_size, 1400, 900)
        self.assertLess(self.one("#bytes").rect["y"], self.one("#fields").rect["y"])
        self.assertEqual(self.one("#bytes").rect["x"], self.one("#fields").rect["x"])


class ScreenReader(Page):
    """What the browser tells a screen reader."""

    def nodes(self, role):
        tree = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        found = [node for node in tree if not node.get("ignored") and node.get("role", {}).get("value") == role]
        return [(node.get("name", {}).get("value", ""),
                 {item["name"]: item["value"].get("value") for item in node.get("properties", [])}) for node in found]

    def test_both_sides_have_roles_names_and_levels(self):
        self.open(PEMS)
        self.assertEqual([name for name, _ in self.nodes("grid")], ["Bytes"])
        self.assertEqual([name for name, _ in self.nodes("tree")], ["Fields"])
        cells = self.nodes("gridcell")
        self.assertEqual(len(cells), 23)
        self.assertEqual(cells[0][0], "5a")
        items = self.nodes("treeitem")
        self.assertEqual([properties["level"] for _, properties in items], [1, 2, 3, 3, 2, 1, 2, 2])
        self.assertTrue(items[0][1]["selected"] and items[0][1]["expanded"])
        self.assertIn("psu 1", items[2][0])

    def test_controls_have_names(self):
        self.open(WRONG_WIRE_TYPE)
        self.assertEqual([name for name, _ in self.nodes("searchbox")], ["Path"])
        self.assertEqual([name for name, _ in self.nodes("button")], ["Show the place", "Previous match", "Next match"])

    def test_choice_is_said_aloud(self):
        self.open(PEMS)
        live = [properties["live"] for _, properties in self.nodes("status")]
        self.assertEqual(set(live), {"polite"})


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
