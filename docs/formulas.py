"""Formulas set in the browser by KaTeX, which is copied into the pages: they need no network.

Debian's package libjs-katex has the script, the style sheet and the fonts. Of the three formats of each font, only
WOFF2 is copied, which all current browsers read. The copy takes 0.6 MB.
"""

import pathlib
import re
import shutil

from docutils import nodes
from sphinx.errors import ExtensionError
from sphinx.util.math import get_node_equation_number

KATEX = pathlib.Path("/usr/share/javascript/katex")


def write_formula(translator, node):
    inline = isinstance(node, nodes.math)
    formula = node.astext()
    if not inline and node["number"]:
        formula += rf"\tag{{{get_node_equation_number(translator, node)}}}"
    tag = "span" if inline else "div"
    translator.body.append(translator.starttag(node, tag, suffix="", CLASS="math notranslate"))
    translator.body.append(translator.encode(formula) + f"</{tag}>")
    raise nodes.SkipNode


def copy_katex(app):
    if app.builder.format != "html":
        return
    if not KATEX.is_dir():
        raise ExtensionError(f"expected KaTeX in {KATEX} (package libjs-katex), found nothing")
    copy = pathlib.Path(app.outdir) / "_static/katex"
    (copy / "fonts").mkdir(parents=True, exist_ok=True)
    shutil.copy(KATEX / "katex.js", copy)
    for font in (KATEX / "fonts").glob("*.woff2"):
        shutil.copy(font, copy / "fonts")
    style = (KATEX / "katex.min.css").read_text()
    (copy / "katex.css").write_text(re.sub(r",url\([^)]*\.(woff|ttf)\) format\(['\"]\w+['\"]\)", "", style))


def load_katex_where_needed(app, page, template, context, document):
    if document and any(document.findall(lambda node: isinstance(node, (nodes.math, nodes.math_block)))):
        app.add_css_file("katex/katex.css")
        app.add_js_file("katex/katex.js", loading_method="defer")
        app.add_js_file("set_formulas.js", loading_method="defer")


def setup(app):
    app.add_html_math_renderer("katex", (write_formula, None), (write_formula, None))
    app.connect("builder-inited", copy_katex)
    app.connect("html-page-context", load_katex_where_needed)
    return {"parallel_read_safe": True}
