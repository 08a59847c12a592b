"""The directive `header-reference`: the reference of a C header, made from the header's own comments.

A header holds comments and declarations. A declaration is told by the comment in front of it, which may tell several.
In a comment, a paragraph whose lines are all at the margin is text; one with indented lines is a table, and is shown as
it stands. `---- A title ----` begins a section, whose text is the next comment if no declaration follows that. The
header's first comment may have definitions and numbered lists, in the notation that Sphinx reads.
"""

import pathlib
import re
import textwrap

from docutils import nodes
from docutils.statemachine import StringList
from sphinx.util.docutils import SphinxDirective
from sphinx.util.nodes import nested_parse_with_titles

PIECE = re.compile(
    r"/\*(?P<comment>.*?)\*/"
    r"|^QUENTA_API (?P<function>[^;]*);"
    r"|^enum \{(?P<constants>.*?)\};"
    r"|^#[^\n]*|^extern \"C\" \{|^\}", re.DOTALL | re.MULTILINE)


def text_of(comment):
    """What a comment says, without the stars at its left."""
    lines = comment.strip().splitlines()
    return "\n".join([lines[0], *(re.sub(r"^ \* ?", "", line) for line in lines[1:])]).strip()


def escaped(text):
    return re.sub(r"([*_`|\\])", r"\\\1", text)


def paragraphs(text):
    """A comment on a declaration in Sphinx's notation."""
    for paragraph in re.split(r"\n\s*\n", text):
        if re.search(r"^(In|Out|Returns|Takes) |^ ", paragraph, re.MULTILINE):
            yield "::\n\n" + textwrap.indent(paragraph, "    ")
        else:
            yield escaped(paragraph)


def declared(kind, signatures, text):
    first, *others = signatures
    head = [f".. c:{kind}:: {first}", *(" " * len(f".. c:{kind}:: ") + other for other in others)]
    return "\n".join(head) + "\n\n" + textwrap.indent("\n\n".join(paragraphs(text)), "   ")


def reference(header):
    """The header as a document in Sphinx's notation, piece by piece."""
    functions = 0
    waiting = None  # a comment whose declarations are still to come
    told = []  # its declarations
    parts = []

    def finish():
        nonlocal waiting
        if told:
            parts.append(declared("function", told, waiting))
        elif waiting:
            parts.extend(paragraphs(waiting))
        waiting = None
        told.clear()

    pieces = list(PIECE.finditer(header))
    parts.append(escaped(text_of(pieces[0]["comment"])))
    for piece in pieces[1:]:
        if piece["comment"]:
            finish()
            waiting = text_of(piece["comment"])
            title = re.fullmatch(r"-+ (.*?) -+", waiting)
            if title:
                parts.append(f"{title[1]}\n{'-' * len(title[1])}")
                waiting = None
        elif piece["function"]:
            if not waiting:
                raise ValueError(f"nothing tells what this does: {piece['function']}")
            told.append(" ".join(piece["function"].split()))
            functions += 1
        elif piece["constants"]:
            parts.append(escaped(waiting))
            waiting = None
            for name, value, comment in re.findall(r"(\w+ = (\d+)),?\s*/\*(.*?)\*/", piece["constants"]):
                parts.append(declared("enumerator", [name.split()[0]], f"{value}: {comment.strip()}"))
    finish()
    rest = PIECE.sub("", header).strip()
    if rest:
        raise ValueError(f"the reference leaves out: {rest}")
    if functions != len(re.findall(r"^QUENTA_API ", header, re.MULTILINE)):
        raise ValueError("the reference leaves out a function")
    return "\n\n".join(parts)


class HeaderReference(SphinxDirective):
    required_arguments = 1

    def run(self):
        relative, absolute = self.env.relfn2path(self.arguments[0])
        self.env.note_dependency(relative)
        text = reference(pathlib.Path(absolute).read_text())
        node = nodes.section()
        node.document = self.state.document
        nested_parse_with_titles(self.state, StringList(text.splitlines(), source=absolute), node)
        return node.children


def setup(app):
    app.add_directive("header-reference", HeaderReference)
    return {"parallel_read_safe": True}
