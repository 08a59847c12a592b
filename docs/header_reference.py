"""The directive `header-reference`: documents a C header from its own comments.

A comment documents the declarations that follow it, one or several. A paragraph of a comment whose lines all start at
the margin is text; one with indented lines is a table and is shown verbatim. `---- A title ----` begins a section, whose
text is the next comment if no declaration follows it. The first comment of the header may contain definitions and
numbered lists in the notation of Sphinx; a paragraph that begins with an indented line is shown verbatim.
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
    r"|^QUENTA(_EQUATIONS)?_API (?P<function>[^;]*);"
    r"|^typedef (?P<type>[^;]*);"
    r"|^enum \{(?P<constants>.*?)\};"
    r"|^#[^\n]*|^extern \"C\" \{|^\}", re.DOTALL | re.MULTILINE)
CONSTANT = re.compile(r"(\w+) = (\d+),?[ \t]*(?:/\*(.*?)\*/)?", re.DOTALL)


def text_of(comment):
    """The text of a comment, without the stars at its left."""
    lines = comment.strip().splitlines()
    return "\n".join([lines[0], *(re.sub(r"^ \* ?", "", line) for line in lines[1:])]).strip()


def escaped(text):
    return re.sub(r"([*_`|\\])", r"\\\1", text)


def paragraphs(text):
    """The comment of a declaration in the notation of Sphinx."""
    for paragraph in re.split(r"\n\s*\n", text):
        if re.search(r"^(In|Out|Returns|Memory)\b|^ ", paragraph, re.MULTILINE):
            yield "::\n\n" + textwrap.indent(paragraph, "    ")
        else:
            yield escaped(paragraph)


def introduction(text):
    """The first comment of the header in the notation of Sphinx."""
    for paragraph in re.split(r"\n\s*\n", text):
        yield "::\n\n" + textwrap.indent(paragraph, "    ") if paragraph.startswith(" ") else escaped(paragraph)


def type_declaration(definition):
    """A typedef as Sphinx shows it: the name only of `struct name name`."""
    return re.sub(r"^struct (\w+) \1$", r"\1", definition)


def declared(kind, signatures, text):
    first, *others = signatures
    head = [f".. c:{kind}:: {first}", *(" " * len(f".. c:{kind}:: ") + other for other in others)]
    return "\n".join(head) + "\n\n" + textwrap.indent("\n\n".join(paragraphs(text)), "   ")


def reference(header):
    """The header as a document in the notation of Sphinx."""
    functions = 0
    waiting = None  # a comment whose declarations may follow
    kind, declarations = None, []  # its declarations so far
    parts = []

    def finish():
        nonlocal waiting
        if declarations:
            parts.append(declared(kind, declarations, waiting))
        elif waiting:
            parts.extend(paragraphs(waiting))
        waiting = None
        declarations.clear()

    pieces = list(PIECE.finditer(header))
    parts.extend(introduction(text_of(pieces[0]["comment"])))
    for piece in pieces[1:]:
        if piece["comment"]:
            finish()
            waiting = text_of(piece["comment"])
            title = re.fullmatch(r"-+ (.*?) -+", waiting)
            if title:
                parts.append(f"{title[1]}\n{'-' * len(title[1])}")
                waiting = None
        elif piece["function"] or piece["type"]:
            if not waiting:
                raise ValueError(f"expected a comment before {piece['function'] or piece['type']}, got none")
            kind = "function" if piece["function"] else "type"
            declarations.append(" ".join((piece["function"] or type_declaration(piece["type"])).split()))
            functions += piece["function"] is not None
        elif piece["constants"]:
            parts.extend(paragraphs(waiting))
            waiting = None
            for name, value, comment in CONSTANT.findall(piece["constants"]):
                text = f"{value}: {' '.join(text_of(comment).split())}" if comment else value
                parts.append(declared("enumerator", [name], text))
    finish()
    rest = PIECE.sub("", header).strip()
    if rest:
        raise ValueError(f"expected comments and declarations, got {rest}")
    if functions != len(re.findall(r"^QUENTA\w*_API ", header, re.MULTILINE)):
        raise ValueError("the reference lacks a function")
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
