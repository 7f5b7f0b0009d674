"""What several test files share: outcomes that compare, copies of a module, a client without a model."""

import importlib.util
import inspect
import re
from collections.abc import Callable
from types import ModuleType, SimpleNamespace
from typing import Any


class Text(str):
    """A string that is not exactly a `str`."""


class Used(Exception):
    """Somebody used a Poison."""


class Poison:
    """Raises `Used` at any use."""

    def _used(self, *_given: object, **_named: object) -> Any:
        raise Used

    __getattr__ = __call__ = __getitem__ = __index__ = __hash__ = __eq__ = __lt__ = __gt__ = _used


def fail(*_given: object, **_named: object) -> Any:
    raise LookupError("failed")


def odd(**methods: Any) -> type:
    """A class with these special methods only."""
    return type("Odd", (), {f"__{name}__": method for name, method in methods.items()})


def odd_key(name: str) -> str:
    """A string with the hash of `name` that cannot be compared."""
    return type("Key", (str,), {"__eq__": fail, "__hash__": str.__hash__})(name)


def traced(trace: list[Any], name: str, result: Callable[..., Any] = lambda *_: None) -> Callable[..., Any]:
    """A function that writes its calls down."""
    return lambda *given, **named: trace.append((name, given, named)) or result(*given)


def outcome(call: Callable[..., Any], *given: Any, **named: Any) -> str:
    """What a call came to, in words that are the same for the module and its Python form."""
    try:
        result = repr(call(*given, **named))
    except Exception as error:
        result = f"{type(error).__qualname__}: {error}"
    return re.sub(r" at 0x\w+", "", result.replace("citation_check_plain", "citation_check"))


def agree(both: tuple[ModuleType, ModuleType], call: Callable[[ModuleType], Any]) -> str:
    """What a call came to, on the module as on its Python form."""
    one, other = (outcome(call, module) for module in both)
    assert one == other
    return one


def find(module: ModuleType, qualname: str) -> Any:
    """A class or function by its qualified name, out of the property or class method that holds it."""
    value: Any = module
    for name in qualname.split("."):
        value = inspect.getattr_static(value, name)
    return getattr(value, "__func__", getattr(value, "fget", value))


def blank(module: ModuleType) -> ModuleType:
    """A copy of a module that has yet to run, unknown to the interpreter's module table."""
    spec = importlib.util.spec_from_file_location(module.__name__, module.__file__)
    return importlib.util.module_from_spec(spec)


def fresh(module: ModuleType) -> ModuleType:
    copy = blank(module)
    copy.__spec__.loader.exec_module(copy)
    return copy


def page(*lines: str) -> str:
    """A page of one sentence a line range, each citing that range of src/app.py."""
    return "\n\n".join(f"The sentence about {text} [src/app.py:{text}]." for text in lines)


class Client:
    """A decision client that answers with what `answer` makes of the sentence."""

    def __init__(self, answer: Callable[[str], Any] = lambda _sentence: "supports", **config: Any) -> None:
        self.config = SimpleNamespace(wiki_check_citations_per_page=100, max_parallel_calls=2)
        vars(self.config).update(allow_source_upload=True, **config)
        self.answer, self.switch = answer, True
        self.asked: Any = []
        self.budgets: Any = []

    def feature_enabled(self, name: str) -> Any:
        return name == "wiki_check_citations" and self.switch

    def new_budget(self, **named: Any) -> Any:
        self.budgets.append(named)
        return SimpleNamespace(number=len(self.budgets))

    def decide(self, state: Any, _questions: Any, *, question_version: Any, budget: Any) -> dict[str, Any]:
        hash(question_version)
        self.asked.append(state[0][1])
        return {"citation": self.answer(state[0][1])}
