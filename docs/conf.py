"""The manual, built by Sphinx and MyST from every Markdown file of the checkout: see `scripts/docs`.

The source directory is the root of the checkout, so relative links are the same in the files and in the manual. A link
to a file or heading that does not exist is a warning, and the build treats warnings as errors.
"""

import pathlib
import re
import sys

from sphinx.util import logging

here = pathlib.Path(__file__).parent
sys.path.insert(0, str(here))
sys.path.insert(0, str(here.parent / "bindings/python"))

import quenta

project = "quenta_native"
author = "the quenta_native developers"
copyright = f"2026, {author}"
version = release = re.search(r"VERSION (\d+\.\d+\.\d+)", (here.parent / "CMakeLists.txt").read_text())[1]

extensions = ["myst_parser", "numpydoc", "sphinx.ext.autodoc", "citation_labels", "debian_furo", "formulas",
              "header_reference", "measured_settings"]
root_doc = "docs/index"
include_patterns = ["docs/*", "examples/*/README.md", "bindings/python/README.md", "*.md"]
exclude_patterns = ["build*", ".git"]
nitpicky = True

default_role = "code"
autodoc_member_order = "bysource"
autodoc_typehints = "none"
numpydoc_show_class_members = False
smartquotes = False
highlight_language = "none"

myst_enable_extensions = ["dollarmath"]
myst_heading_anchors = 3

html_theme = "furo"
html_title = f"{project} {release}"
html_math_renderer = "katex"
html_static_path = ["static"]
html_css_files = ["manual.css"]
html_copy_source = False
html_show_sphinx = False


def find_undocumented(app, env):
    documented = env.get_domain("py").objects
    for name in quenta.__all__:
        if f"quenta.{name}" not in documented:
            logging.getLogger(__name__).warning("the reference lacks quenta.%s", name)


def setup(app):
    app.connect("env-check-consistency", find_undocumented)
