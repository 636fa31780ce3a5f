"""The examples in docstrings hold, and nothing that a person can call is without one."""

import doctest
import importlib
import inspect
import pkgutil
import types
from collections.abc import Iterator

import quorvel
from quorvel import _quorvel


def modules() -> Iterator[types.ModuleType]:
    """The package's Python modules and those inside the compiled one."""
    yield quorvel
    for found in pkgutil.iter_modules(quorvel.__path__, "quorvel."):
        yield importlib.import_module(found.name)
    waiting = [_quorvel.core]
    while waiting:
        module = waiting.pop()
        yield module
        waiting += [value for value in vars(module).values() if inspect.ismodule(value)]


def test_examples_hold() -> None:
    finder, runner = doctest.DocTestFinder(), doctest.DocTestRunner()
    for module in modules():
        for examples in finder.find(module):
            runner.run(examples)
    assert runner.tries >= 8 and runner.failures == 0


def test_nothing_is_undocumented() -> None:
    silent = []
    for module in modules():
        for name, value in vars(module).items():
            public = not name.startswith("_") and getattr(value, "__module__", "").startswith("quorvel")
            said = inspect.getdoc(value) or ""
            if public and not said.partition("\n\n")[2 if inspect.isbuiltin(value) else 0].strip():
                silent.append(f"{module.__name__}.{name}")
    assert not silent
