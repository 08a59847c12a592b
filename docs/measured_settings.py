"""The directive `measured-settings`: a table of all collocation settings, of what the Python package knows of them."""

import pathlib
from fractions import Fraction

from docutils import nodes
from docutils.statemachine import StringList
from sphinx.util.docutils import SphinxDirective

import quenta

FORMS = {"vie2": "second kind", "vide": "integro-differential", "vie1": "first kind",
         "vie1_continuous": "first kind, continuous"}


def told(measured):
    if not measured.usable:
        return "refused" if "refused" in measured.note else "no"
    if not measured.stable:
        return f"grows × {measured.growth:.3g}"
    order, at_steps = round(measured.order), round(measured.order_at_steps)
    higher = f" ({at_steps})" if at_steps > order else ""
    return f"{order}{higher}, {measured.error:.0e}"


def reads(setting):
    of_g, of_K = (str(Fraction(part).limit_denominator(16)) for part in (setting.fraction_of_g_read, setting.fraction_of_K_read))
    return of_g if of_g == of_K else f"{of_g}, {of_K}"


def damps(setting):
    worst = max(setting.measured[form].stiff_growth for form in ("vie2", "vide"))
    return "yes" if worst <= 0.9 else "no" if worst <= 1.01 else "overflows"


class MeasuredSettings(SphinxDirective):
    def run(self):
        self.env.note_dependency(str(pathlib.Path(quenta.__file__).with_name("measured_settings.json")))
        rows = [["m", "nodes", "reads", *FORMS.values(), "damps"], ["---"] * (len(FORMS) + 4)]
        for setting in quenta.settings():
            rows.append([str(setting.m), " ".join(map(str, setting.nodes)), reads(setting),
                         *(told(setting.measured[form]) for form in FORMS), damps(setting)])
        table = nodes.container()
        self.state.nested_parse(StringList([f"| {' | '.join(row)} |" for row in rows]), 0, table)
        return table.children


def setup(app):
    app.add_directive("measured-settings", MeasuredSettings)
    return {"parallel_read_safe": True}
