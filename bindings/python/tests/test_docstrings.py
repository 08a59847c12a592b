"""Every public name has a complete docstring in the form of numpydoc. pytest also runs the examples in them."""

import builtins
import dataclasses
import doctest
import inspect

import pytest
from numpydoc.docscrape import ClassDoc, FunctionDoc
from numpydoc.validate import validate

import quenta

# Rules of numpydoc that do not apply: the summary is on the line of the quotes, one paragraph can be enough, and
# members of a class are described by its introduction. The results of solvers are not constructed by users.
OTHER_FORM = {"GL01", "ES01"}
OF_FUNCTIONS_ONLY = {"PR01"}
OF_WHOLE_OBJECTS_ONLY = {"SA01", "EX01"}

CLASSES = [name for name in quenta.__all__ if inspect.isclass(getattr(quenta, name))]
FUNCTIONS = [name for name in quenta.__all__ if name not in CLASSES]


def own_members(name):
    """The public methods and properties that a class defines. Those that it inherits or that are generated have none."""
    members = {}
    for member, value in vars(getattr(quenta, name)).items():
        if not member.startswith("_") or member in ("__call__", "__len__"):
            if inspect.isfunction(value) or isinstance(value, property):
                members[f"{name}.{member}"] = value
    return members


METHODS = [member for name in CLASSES for member, value in own_members(name).items() if inspect.isfunction(value)]
PROPERTIES = [member for name in CLASSES for member, value in own_members(name).items() if isinstance(value, property)]


def find(name):
    thing = quenta
    for part in name.split("."):
        thing = getattr(thing, part)
    return thing


def faults(name, *allowed):
    return [(code, text) for code, text in validate(f"quenta.{name}")["errors"] if code not in OTHER_FORM.union(*allowed)]


def test_there_are_public_names_of_every_sort():
    assert len(FUNCTIONS) >= 11 and len(CLASSES) >= 18 and len(METHODS) >= 4 and len(PROPERTIES) >= 9


@pytest.mark.parametrize("name", FUNCTIONS + METHODS)
def test_functions_describe_their_parameters_and_results(name):
    assert not faults(name)


@pytest.mark.parametrize("name", CLASSES)
def test_classes_follow_the_form(name):
    assert not faults(name, OF_FUNCTIONS_ONLY)


@pytest.mark.parametrize("name", PROPERTIES)
def test_properties_follow_the_form(name):
    assert not faults(name, OF_WHOLE_OBJECTS_ONLY)


def required_sections(name):
    sections = ["Summary", "See Also", "Notes", "Examples"]
    if name != "settings":  # it takes nothing, and cannot fail
        sections.append("Raises")
    if inspect.signature(find(name)).parameters:
        sections.append("Parameters")
    if inspect.signature(find(name)).return_annotation != "None":
        sections.append("Returns")
    if name.startswith("solve_") or name == "with_error":
        sections += ["Warns", "References"]
    if name == "ensemble":
        sections.append("Warns")
    return sections


@pytest.mark.parametrize("name", FUNCTIONS)
def test_functions_have_all_sections(name):
    document = FunctionDoc(find(name))
    assert [section for section in required_sections(name) if not document[section]] == []
    for section in ("Raises", "Warns"):
        for described in document[section]:
            kind = getattr(quenta, described.type, None) or getattr(builtins, described.type)
            assert issubclass(kind, Warning if section == "Warns" else Exception) or kind is quenta.EnsembleInterrupt


def field_names(kind):
    if dataclasses.is_dataclass(kind):
        return [field.name for field in dataclasses.fields(kind)]
    if hasattr(kind, "_fields"):
        return list(kind._fields)
    return list(vars(kind("text"))) if issubclass(kind, Exception) or kind is quenta.EnsembleInterrupt else []


@pytest.mark.parametrize("name", CLASSES)
def test_classes_describe_their_attributes_and_have_examples(name):
    document = ClassDoc(find(name), config={"show_class_members": False})
    assert [described.name for described in document["Attributes"]] == field_names(find(name))
    assert all(described.type and described.desc for described in document["Attributes"])
    assert document["Summary"] and document["See Also"] and document["Examples"]


@pytest.mark.parametrize("name", FUNCTIONS + METHODS + CLASSES)
def test_examples_are_runnable(name):
    examples = doctest.DocTestParser().get_examples("\n".join(inspect.getdoc(find(name)).splitlines()))
    assert any("quenta." in example.source for example in examples)


def test_pytest_runs_the_examples(pytestconfig):
    assert pytestconfig.option.doctestmodules and "quenta" in pytestconfig.getini("testpaths")
