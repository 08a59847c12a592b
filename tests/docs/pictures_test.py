"""The pictures of the manual are small SVG files, the same in every run, that read on light and on dark pages.

usage: pictures_test.py DIRECTORY

In the files of Matplotlib, a comment holds the text that the outlines after it show.
"""

import pathlib
import re
import sys
import unittest
import xml.etree.ElementTree

PICTURES = sorted(pathlib.Path(sys.argv[1]).iterdir())
SVG = "{http://www.w3.org/2000/svg}"
LEAST_CONTRAST = 3  # of lines, to white and to black; that of text is 4


def luminance(colour):
    parts = [int(colour[i:i + 2], 16) / 255 for i in (1, 3, 5)]
    red, green, blue = (part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(colour):
    """The smaller of the contrasts to white and to black."""
    return min(1.05 / (luminance(colour) + 0.05), (luminance(colour) + 0.05) / 0.05)


def axis_labels(root):
    """The labels of the axes: the text in each axis that belongs to no tick."""
    for axis in root.iter(SVG + "g"):
        if axis.get("id", "").startswith("matplotlib.axis_"):
            labels = [part for part in axis if part.get("id", "").startswith("text_")]
            yield " ".join(comment.text.strip() for part in labels for comment in part.iter()
                           if comment.tag is xml.etree.ElementTree.Comment)


def look_of(curve, forms):
    """The colour of a curve, and its dashes and the form of its marks. A thin line, such as a guide, has none."""
    line, mark = curve.find(SVG + "path"), curve.find(f".//{SVG}use")
    if line is None and mark is None:
        return None, None  # it stands for a line in the legend
    style = dict(re.findall(r"([a-z-]+): ([^;]+)", (mark if line is None else line).get("style")))
    if float(style.get("stroke-width", 1)) < 1:
        return None, None
    form = None if mark is None else forms[mark.get("{http://www.w3.org/1999/xlink}href")[1:]]
    return style["stroke"], (line is not None, style.get("stroke-dasharray"), form)


class Pictures(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        builder = xml.etree.ElementTree.TreeBuilder
        cls.roots = {path: xml.etree.ElementTree.parse(
            path, xml.etree.ElementTree.XMLParser(target=builder(insert_comments=True))).getroot() for path in PICTURES}

    def test_there_are_pictures(self):
        self.assertGreaterEqual(len(self.roots), 10)

    def test_every_picture_is_an_svg_file_of_at_most_120_kilobytes(self):
        for path, root in self.roots.items():
            self.assertEqual((path.suffix, root.tag), (".svg", SVG + "svg"), path.name)
            self.assertLess(path.stat().st_size, 120000, path.name)

    def test_nothing_is_raster_or_loaded(self):
        for path, root in self.roots.items():
            self.assertEqual([part for part in root.iter() if part.tag in (SVG + "image", SVG + "script")], [], path.name)
            self.assertEqual(re.findall(r"""(?:href="|url\()(?!#)[^")]*""", path.read_text()), [], path.name)

    def test_no_date_is_written(self):
        for path, root in self.roots.items():
            self.assertFalse("<dc:date>" in path.read_text(), path.name)

    def test_background_is_transparent(self):
        for path, root in self.roots.items():
            background, = (part for part in root.iter(SVG + "g") if part.get("id") == "patch_1")
            self.assertEqual(background.find(SVG + "path").get("style"), "fill: none", path.name)

    def test_every_colour_has_contrast_to_white_and_to_black(self):
        for path, root in self.roots.items():
            strokes = set(re.findall(r"stroke: (#[0-9a-f]{6})", path.read_text())) - {"#ffffff"}  # edges of marks
            self.assertGreater(len(strokes), 1, path.name)
            for colour in strokes:
                self.assertGreaterEqual(contrast(colour), LEAST_CONTRAST, (path.name, colour))

    def test_texts_have_contrast_to_white_and_to_black(self):
        for path, root in self.roots.items():
            texts = [part for part in root.iter(SVG + "g") if part.get("id", "").startswith("text_")]
            self.assertGreater(len(texts), 5, path.name)
            for part in texts:
                colour = re.search(r"fill: (#[0-9a-f]{6})", xml.etree.ElementTree.tostring(part, encoding="unicode"))
                self.assertIsNotNone(colour, path.name)
                self.assertGreaterEqual(contrast(colour[1]), 4, (path.name, colour[1]))

    def test_every_axis_has_its_unit(self):
        for path, root in self.roots.items():
            labels = list(axis_labels(root))
            self.assertIn(len(labels), (2, 4), path.name)
            for label in labels:
                self.assertRegex(label, r"\(.+\)", path.name)

    def test_lines_of_one_axes_differ_without_their_colour(self):
        for path, root in self.roots.items():
            forms = {part.get("id"): part.get("d") for part in root.iter(SVG + "path")}
            for axes in (part for part in root.iter(SVG + "g") if part.get("id", "").startswith("axes_")):
                looks = {}
                for curve in (part for part in axes if part.get("id", "").startswith("line2d_")):
                    colour, look = look_of(curve, forms)
                    if look:
                        self.assertEqual(looks.setdefault(look, colour), colour, (path.name, look))
                self.assertTrue(looks, path.name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
