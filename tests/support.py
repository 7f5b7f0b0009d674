"""What several test files share: copies of a module, outcomes that compare, a host without a model."""

import importlib.util
import inspect
import os
import re
import subprocess
import sys
from pathlib import Path, PurePath
from types import FunctionType, SimpleNamespace

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "host"), str(ROOT)]
FUNCTIONS = """CitedClaim.ref CitationCheck.score CitationCheck.findings CitationCheck.warnings _prose_blocks
_claim_text cited_claims cited_lines CitedSources.__init__ CitedSources.passage CitedSources._read
check_citations CitationChecker.__init__ CitationChecker.enabled CitationChecker.check
CitationCheckMixin._citation_check citation_lint_findings""".split()
CLASSES = "CitedClaim CheckedClaim CitationCheck CitedSources CitationChecker CitationCheckMixin".split()
# What functions look up in the module's namespace, at the moment of its use.
READ = """logger re threading ThreadPoolExecutor CITATION_QUESTION_VERSION citation_answer citation_request
_norm source_consented _CITATION_RE citation_key _FENCE_RE _PASSAGE_CHARS _CLAIM_MIN_CHARS _SENTENCE_END_RE
_LIST_MARK_RE CitedClaim CheckedClaim _VERDICT_FINDINGS _DETAIL_CLAIM_CHARS _FAILURE_CHARS CitationCheck
_prose_blocks _claim_text cited_claims cited_lines CitedSources check_citations CitationChecker""".split()
ADDRESS = re.compile(r" at 0x\w+")
SPACES = [chr(code) for code in range(sys.maxunicode + 1) if chr(code).isspace()]
LINE_ENDS = ["\r\n", "\n\r", "\r", *(space for space in SPACES if len(f"a{space}b".splitlines()) == 2)]


class Text(str):
    """A string that is not exactly a `str`."""


def fail(*_given, error=LookupError, **_named):
    raise error("failed")


def odd(*bases, **methods):
    """A class with special methods of its own."""
    return type("Odd", bases, {f"__{name}__": method for name, method in methods.items()})


def outcome(call, *given, **named):
    """What a call came to, in words that are the same for the module and its Python form."""
    try:
        result = repr(call(*given, **named))
    except BaseException as error:
        context = type(error.__context__).__qualname__
        result = f"{type(error).__qualname__}: {error} {getattr(error, 'name', '')} in {context}"
    return ADDRESS.sub("", result.replace("citation_check_plain", "citation_check"))


def shown(value):
    """A value in words that are the same for the module and its plain form; takes no step."""
    kind = type(value)
    if kind.__name__ == "Watch":
        return object.__getattribute__(value, "parts")[1]
    for base, show in ((str, str.__repr__), (int, int.__repr__), (PurePath, PurePath.__str__)):
        if isinstance(value, base):
            return f"{kind.__name__} {show(value)}"
    for base, items in ((list, list.__iter__), (tuple, tuple.__iter__), (dict, dict.items)):
        if isinstance(value, base):
            return f"{kind.__name__} [{', '.join(map(shown, items(value)))}]"
    if isinstance(value, BaseException):
        return f"{kind.__name__} {shown(value.args)} after {type(value.__context__).__name__}"
    if hasattr(kind, "__dataclass_fields__"):
        fields = [object.__getattribute__(value, name) for name in kind.__dataclass_fields__]
        return f"{kind.__qualname__} {shown(fields)}"
    return value.__qualname__ if isinstance(value, FunctionType) else kind.__name__


def agree(both, call):
    """What a call came to, on the module as on its Python form."""
    one, other = (outcome(call, module) for module in both)
    near = max(0, len(os.path.commonprefix([one, other])) - 60)
    assert one[near : near + 120] == other[near : near + 120]  # where they part, for they may be long
    return one


def find(module, qualname):
    """A class or function by its qualified name, out of the property or class method that holds it."""
    value = module
    for name in qualname.split("."):
        value = inspect.getattr_static(value, name)
    return getattr(value, "__func__", getattr(value, "fget", value))


def blank(module):
    """A copy of a module that has yet to run, unknown to the interpreter's module table."""
    spec = importlib.util.spec_from_file_location(module.__name__, module.__file__)
    return importlib.util.module_from_spec(spec)


def fresh(module):
    copy = blank(module)
    copy.__spec__.loader.exec_module(copy)
    return copy


def page(*lines):
    """A page of one sentence a line range, each citing that range of src/app.py."""
    return "\n\n".join(f"The sentence about {text} [src/app.py:{text}]." for text in lines)


def ended(*given, timeout=20):
    """How an interpreter that is given this ends, and what it prints."""
    environment = os.environ | {"PYTHONPATH": ":".join(sys.path), "PYTHONDONTWRITEBYTECODE": "1"}
    command = [sys.executable, *given]
    run = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=timeout)
    return run.returncode, run.stdout.replace("_plain", ""), run.stderr


def verdict(sentence):
    return fail() if "L4" in sentence else "contradicts" if "L2" in sentence else "supports"


class Client:
    """A decision client that answers with what `answer` makes of the sentence."""

    def __init__(self, answer=verdict, switch=True, **config):
        usual = {"wiki_check_citations_per_page": 100, "max_parallel_calls": 2, "allow_source_upload": True}
        self.config = SimpleNamespace(**usual | config)
        self.answer, self.switch = answer, switch

    def feature_enabled(self, name):
        return name == "wiki_check_citations" and self.switch

    def new_budget(self, **named):
        return SimpleNamespace(**named)

    def decide(self, state, _questions, *, question_version, budget):
        hash(question_version)
        return {"citation": self.answer(state[0][1])}
