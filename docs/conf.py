"""The manual: Sphinx reads Markdown by MyST, here and where the examples tell of themselves. `scripts/docs` builds it.

Its root is that of the checkout, so that links lead to the same places as for those who read the files as they are.
"""

import pathlib
import re
import sys

from docutils import nodes
from docutils.utils.math import latex2mathml

here = pathlib.Path(__file__).parent
sys.path.insert(0, str(here))
sys.path.insert(0, str(here.parent / "bindings/python"))

project = "quenta_native"
author = "the quenta_native developers"
version = release = re.search(r"VERSION (\d+\.\d+\.\d+)", (here.parent / "CMakeLists.txt").read_text())[1]

extensions = ["myst_parser", "header_reference"]
root_doc = "docs/index"
include_patterns = ["docs/*", "examples/*/README.md", "CHANGELOG.md", "CONTRIBUTING.md"]
exclude_patterns = ["build*", ".git"]
nitpicky = True

myst_enable_extensions = ["dollarmath"]
myst_heading_anchors = 3

html_theme = "alabaster"
html_theme_options = {
    "description": "Solvers for linear Volterra equations",
    "fixed_sidebar": True,
    "page_width": "1280px",
    "code_font_size": "0.8em",
}
html_copy_source = False
html_math_renderer = "mathml"


# Formulas become MathML, which browsers show by themselves: the manual needs no script, and no network.
def write_math(translator, node):
    inline = isinstance(node, nodes.math)
    formula = latex2mathml.tex2mathml(node.astext(), inline=inline)
    translator.body.append(formula if inline else f'<div class="math">{formula}</div>\n')
    raise nodes.SkipNode


def setup(app):
    app.add_html_math_renderer("mathml", (write_math, None), (write_math, None))
