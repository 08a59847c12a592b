"""Shows the citations in docstrings as they are written, such as [1]. numpydoc makes their labels unique in the manual,
and undoes this itself in pages of reStructuredText, but not in those of MyST.
"""

import re

from docutils import nodes
from sphinx import addnodes


def shorten(app, document):
    for reference in document.findall(addnodes.pending_xref):
        if reference["refdomain"] == "citation":
            label = re.sub(r"^\[R[0-9a-f]{12}-", "[", reference.astext())
            reference[:] = [nodes.inline(label, label)]


def setup(app):
    app.connect("doctree-read", shorten)
    return {"parallel_read_safe": True}
