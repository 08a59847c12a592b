"""Completes Debian's style sheet of the theme furo, which lacks two things that the theme's own sheet has.

It imports a style sheet from a directory of the web server, but the pages are read without a server. And the dark
colours apply only if the reader chooses them on the page, not if the browser prefers dark pages.
"""

import pathlib
import re

from sphinx.errors import ExtensionError


def include_imports(sheet):
    """The sheet with each imported one in place of its import. Debian has the directory of the server in /usr/share."""
    return re.sub(r"@import url\(/(.*?)\);", lambda found: (pathlib.Path("/usr/share") / found[1]).read_text(), sheet)


def follow_browser(sheet):
    """The sheet with the dark colours also for browsers that prefer them, unless the reader chose light ones."""
    if "prefers-color-scheme: dark" in sheet:
        return sheet
    colours = re.search(r'body\[data-theme="dark"\] (\{[^}]*--color-background-primary[^}]*\})', sheet)
    if not colours:
        raise ExtensionError("expected the dark colours in the style sheet of furo, found none")
    return (f'{sheet}\n@media screen and (prefers-color-scheme: dark) {{\nbody:not([data-theme="light"]) {colours[1]}\n'
            'html body:not([data-theme="light"]) .only-light { display: none !important; }\n'
            'html body:not([data-theme="light"]) .only-dark { display: block !important; }\n}\n')


def complete(app, failure):
    path = pathlib.Path(app.outdir) / "_static/styles/furo.css"
    if failure is None and app.builder.format == "html":
        path.write_text(follow_browser(include_imports(path.read_text())))


def setup(app):
    app.connect("build-finished", complete)
    return {"parallel_read_safe": True}
