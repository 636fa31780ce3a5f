"""The examples in docstrings hold, and nothing that a person can call is without one."""

import doctest
import importlib
import inspect
import pkgutil
import types

import quorvel
from quorvel import _quorvel


def modules() -> list[types.ModuleType]:
    """The package's Python modules and those inside the compiled one."""
    python = [importlib.import_module(found.name) for found in pkgutil.iter_modules(quorvel.__path__, "quorvel.")]
    compiled = [_quorvel.core, *(value for value in vars(_quorvel.core).values() if inspect.ismodule(value))]
    return [quorvel, *python, *compiled]


def test_examples_hold() -> None:
    runner = doctest.DocTestRunner()
    for module in modules():
        for examples in doctest.DocTestFinder().find(module):
            runner.run(examples)
    assert runner.tries > 60 and runner.failures == 0


def test_nothing_is_undocumented() -> None:
    public = [(f"{module.__name__}.{name}", value) for module in modules() for name, value in vars(module).items()
              if getattr(value, "__module__", "").startswith("quorvel") and not name.startswith("_")]
    # A compiled function's own text comes after its signature.
    assert [name for name, value in public
            if not (inspect.getdoc(value) or "").partition("\n\n")[2 * inspect.isbuiltin(value)].strip()] == []
