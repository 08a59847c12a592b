"""The built manual needs no network, and its pages fit narrow screens and dark backgrounds.

usage: manual_test.py DIRECTORY
"""

import html.parser
import pathlib
import re
import sys
import unittest

MANUAL = pathlib.Path(sys.argv[1])
LOADED = {"script": "src", "img": "src", "source": "src", "iframe": "src", "video": "src", "object": "data",
          "link": "href"}


class Page(html.parser.HTMLParser):
    """What a page loads, and the classes around each table and formula."""

    def __init__(self, path):
        super().__init__()
        self.path, self.loaded, self.around, self.opened, self.viewport, self.schemes = path, [], [], [], "", ""
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        if tag in LOADED and attributes.get(LOADED[tag]) and attributes.get("rel") not in ("next", "prev"):
            self.loaded.append(attributes[LOADED[tag]])
        if attributes.get("name") == "viewport":
            self.viewport = attributes["content"]
        if attributes.get("name") == "color-scheme":
            self.schemes = attributes["content"]
        classes = attributes.get("class", "").split()
        if tag == "table" or (tag == "div" and "math" in classes):
            self.around.append((tag, " ".join(classes for _, classes in self.opened)))
        if "math" in classes:
            self.around.append(("formula", ""))
        if tag in ("div", "table", "section"):
            self.opened.append((tag, attributes.get("class", "")))

    def handle_endtag(self, tag):
        if tag in ("div", "table", "section"):
            self.opened.pop()


def local(page, address):
    return page.parent / address.split("#")[0].split("?")[0]


class Manual(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.pages = [Page(path) for path in sorted(MANUAL.rglob("*.html")) if "_static" not in path.parts]
        cls.styles = sorted((MANUAL / "_static").rglob("*.css"))

    def test_pages_and_styles_are_found(self):
        self.assertGreater(len(self.pages), 20)
        self.assertGreater(len(self.styles), 3)

    def test_pages_load_only_files_of_the_manual(self):
        for page in self.pages:
            self.assertGreater(len(page.loaded), 3, page.path)
            for address in page.loaded:
                self.assertNotRegex(address, "^([a-z]+:)?//", page.path)
                if not address.startswith("data:"):
                    self.assertTrue(local(page.path, address).exists(), (page.path, address))

    def test_styles_load_only_files_of_the_manual(self):
        found = 0
        for path in self.styles:
            style = path.read_text()
            self.assertFalse("@import" in style, path)
            for address in re.findall(r"""url\(['"]?([^'")]+)""", style):
                self.assertNotRegex(address, "^(https?:)?//", path)
                if not address.startswith("data:"):
                    self.assertTrue(local(path, address).exists(), (path, address))
                    found += 1
        self.assertGreater(found, 10)  # the fonts of the formulas

    def test_scripts_name_no_other_host_to_load_from(self):
        scripts = sorted((MANUAL / "_static").rglob("*.js"))
        self.assertGreater(len(scripts), 3)
        for path in scripts:
            self.assertIsNone(re.search(r"""(src|href)\s*=\s*['"`](https?:)?//""", path.read_text()), path)

    def test_pages_fit_the_screen_and_its_colours(self):
        for page in self.pages:
            self.assertIn("width=device-width", page.viewport, page.path)
            self.assertEqual(page.schemes.split(), ["light", "dark"], page.path)
        style = (MANUAL / "_static/styles/furo.css").read_text()
        self.assertTrue(re.search(r"prefers-color-scheme: dark\)\s*\{[^}]*--color-background-primary", style))

    def test_tables_and_formulas_scroll_inside_their_box(self):
        tables = [(page, around) for page in self.pages for tag, around in page.around if tag == "table"]
        formulas = [(page, around) for page in self.pages for tag, around in page.around if tag == "div"]
        self.assertGreater(len(tables), 20)
        self.assertGreater(len(formulas), 5)
        for page, around in tables:
            self.assertRegex(around, "table-wrapper|index-section", page.path)
        for page, around in formulas:
            self.assertIn("math-wrapper", around, page.path)

    def test_pages_with_formulas_load_what_sets_them(self):
        with_formulas = [page for page in self.pages if any(tag == "formula" for tag, _ in page.around)]
        self.assertGreater(len(with_formulas), 5)
        for page in with_formulas:
            names = {pathlib.Path(address.split("?")[0]).name for address in page.loaded}
            self.assertLessEqual({"katex.js", "katex.css", "set_formulas.js"}, names, page.path)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
