"""A host whose objects write down each step that is taken with them, and that may act at any of these steps.

Its values come in three styles: "plain" ones, with which every shortcut is taken; "subclass", of which every
method is a step; and "stand-in" objects, of which every use is one, look-ups in the module included."""

import operator
import os
import sys
import threading
from contextlib import nullcontext
from pathlib import Path, PosixPath
from types import FunctionType, MethodType, ModuleType, SimpleNamespace
from typing import Any
from weakref import ref

from quenlow.workers.wiki.repo_facts import _norm
from support import READ, Client, shown

STYLES = "plain", "subclass", "stand-in"
BASES = str, int, list, tuple, dict, PosixPath
CALLED = "citation_key _norm citation_request citation_answer source_consented threading".split()
CONSTANTS = "_PASSAGE_CHARS _CLAIM_MIN_CHARS _DETAIL_CLAIM_CHARS _FAILURE_CHARS _VERDICT_FINDINGS".split()
UNRECORDED = """__new__ __init__ __class__ __getattribute__ __init_subclass__ __subclasshook__ __repr__
__del__ __setattr__ __delattr__ __dir__ __doc__ __reduce__ __reduce_ex__""".split()
RAW_RESULTS = [f"__{name}__" for name in "str format hash len index int fspath iter".split()]


class Recorder:
    """The steps so far; `act` is called at the step of that number."""

    def __init__(self, module: ModuleType, style: str, at: int = 0, act: Any = None) -> None:
        self.module, self.style, self.at, self.act = module, style, at, act
        self.trace: list[str] = []
        self.classes: dict[type, type] = {}
        self.lists: list[list[Any]] = []
        self.made: list[ref[Any]] = []
        self.watches: dict[tuple[str, int], Any] = {}

    def step(self, verb: str, *what: Any) -> None:
        handled = sys.exc_info()[1]
        words = [verb, *map(shown, what), f"while handling {type(handled).__name__}" if handled else ""]
        self.trace.append(" ".join(words))
        self.lists += [value for value in what if type(value) is list]
        if len(self.trace) == self.at:
            self.act(self)

    def watch(self, label: str, value: Any) -> Any:
        """The value as one of this host's style."""
        kind = type(value)
        if value is None or value is NotImplemented or isinstance(value, (Watch, BaseException)):
            return value
        # What is joined has to be a text.
        text = self.style == "stand-in" and kind is str and label not in ("markdown", "text")
        if text or self.style == "subclass" and kind in BASES:
            made = self.subclass(kind)(value)
            self.made += [ref(made) for _ in (1,) if kind in (str, dict, list)]
            return made
        if self.style != "stand-in" and kind not in (FunctionType, SimpleNamespace, MethodType, type(_norm)):
            return value
        return self.watches.setdefault((label, id(value)), Watch(self, label, value))

    def observe(self, thing: Any) -> Any:
        """The thing, whose attributes are from now on read in steps."""

        def read(one: Any, name: str) -> Any:
            self.step("read", name)
            return object.__getattribute__(one, name)

        kind = type(own(thing))
        own(thing).__class__ = type(kind.__name__, (kind,), {"__getattribute__": read})
        return thing

    def subclass(self, base: type) -> type:
        if base not in self.classes:
            names = [name for name in dir(base) if name[:2] == "__" or name[0] != "_"]
            names = [name for name in names if callable(getattr(base, name)) and name not in UNRECORDED]
            body = {name: self.method(name, getattr(base, name)) for name in names}
            self.classes[base] = type(f"own_{base.__name__}", (base,), body)
        return self.classes[base]

    def method(self, name: str, function: Any) -> Any:
        def method(own: Any, *given: Any, **named: Any) -> Any:
            self.step(name, own, *given, named)
            result = function(own, *given, **named)
            return result if name in RAW_RESULTS else self.watch(name, result)

        return method


def parts(watch: Any) -> tuple[Recorder, str, Any]:
    return object.__getattribute__(watch, "parts")


def own(value: Any) -> Any:
    return parts(value)[2] if type(value) is Watch else value


class Watch:
    """Stands for a value; each use is a step, and what comes of it is watched too."""

    def __init__(self, host: Recorder, label: str, value: Any) -> None:
        object.__setattr__(self, "parts", (host, label, value))

    def __getattribute__(self, name: str) -> Any:
        host, label, value = parts(self)
        if name == "__class__":
            return Watch
        host.step("read", self, name)
        found = getattr(value, name)
        return host.watch(f"{label}.{name}", found)

    def __setattr__(self, name: str, new: Any) -> None:
        host, _label, value = parts(self)
        host.step("set", self, name, new)
        setattr(value, name, new)

    def __call__(self, *given: Any, **named: Any) -> Any:
        host, label, value = parts(self)
        host.step("call", self, *given, named)
        # What the module gives to its own functions and records is passed on as it is.
        passed = given if label.startswith("own") else map(own, given)
        result = value(*passed, **named)
        no_match = result is None and label.endswith(".match")
        return Watch(host, label, None) if no_match else host.watch(label, result)


def operation(name: str, run: Any, watched: bool) -> Any:
    def step(self: Any, *given: Any) -> Any:
        host, label, value = parts(self)
        host.step(name, self, *given)
        result = run(value, *map(own, given))
        return host.watch(f"{label}.{name}", result) if watched else result

    return step


RAW = [bool, len, hash, operator.index, int, format, str, operator.contains, os.fspath]
OPERATORS = {name: getattr(operator, name) for name in "lt le gt ge eq ne getitem sub truediv".split()}
WATCHED = OPERATORS | {"iter": iter, "next": next, "enter": lambda value: value.__enter__()}
WATCHED["exit"] = lambda value, *error: value.__exit__(*error)
for table, watched in (({run.__name__: run for run in RAW}, False), (WATCHED, True)):
    for name, run in table.items():
        setattr(Watch, f"__{name}__", operation(f"__{name}__", run, watched))


class Key(str):
    """A name in the module's namespace whose look-up is seen, once if it is repeated at once."""

    host: Recorder
    __hash__ = str.__hash__

    def __eq__(self, other: object) -> bool:
        seen = f"look up {str.__str__(self)}"
        self.host.trace += [seen] * (self.host.trace[-1:] != [seen])
        return str.__eq__(self, other)


def settle(host: Recorder, root: Path) -> SimpleNamespace:
    """Puts the host's objects into the module; gives what its functions are called with."""
    namespace = vars(host.module)
    pool = SimpleNamespace(map=map)
    namespace["ThreadPoolExecutor"] = Watch(host, "pool", lambda **_named: nullcontext(pool))
    namespace["logger"] = Watch(host, "logger", SimpleNamespace(warning=lambda *_given, **_named: None))
    namespace["threading"] = SimpleNamespace(Event=threading.Event, Lock=threading.Lock)
    _norm.cache_clear()
    for name in READ if host.style == "stand-in" else CALLED + CONSTANTS:
        own_one = isinstance(namespace[name], (type, FunctionType)) and name not in CALLED
        namespace[name] = host.watch(f"own {name}" if own_one else name, namespace[name])
    for name in READ if host.style == "stand-in" else ():
        key = Key(name)
        key.host, namespace[key] = host, namespace.pop(name)
    client, other = Watch(host, "client", Client()), Watch(host, "other", Client(str))
    return SimpleNamespace(client=client, other=other, root=host.watch("root", root))
