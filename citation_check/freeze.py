"""Freezes surface.py into a C++ header, when the module is built: freeze.py SURFACE HEADER

The statements before the first definition run as the body of the module. The rest becomes the body of a
function of `native`, which holds the C++ bodies: so `native` is a variable of the definitions and no name of
the module.
"""

import __future__
import ast
import marshal
import sys
from pathlib import Path


def frozen(source: str, file: str) -> bytes:
    module = ast.parse(source, file)
    definitions = (ast.ClassDef, ast.FunctionDef)
    first = next(place for place, node in enumerate(module.body) if isinstance(node, definitions))
    rest = module.body[first:]
    for node in rest:
        if not isinstance(node, (*definitions, ast.Assign)):
            raise SystemExit(f"{file}:{node.lineno}: neither a definition nor a plain assignment")
    names = [node.name for node in rest if isinstance(node, definitions)]
    names += [target.id for node in rest if isinstance(node, ast.Assign) for target in node.targets]
    [define] = ast.parse("def define(native): pass").body
    define.body = [ast.Global(names), *rest]
    body = ast.Module(module.body[:first], [])
    later = ast.fix_missing_locations(ast.Module([define], []))
    # Docstrings stay, whatever the options of the interpreter are.
    body_code = compile(body, file, "exec", optimize=0)
    later_code = compile(later, file, "exec", __future__.annotations.compiler_flag, optimize=0)
    return marshal.dumps((body_code, later_code.co_consts[0]))


def main() -> None:
    surface, header = map(Path, sys.argv[1:])
    code = frozen(surface.read_text(encoding="utf-8"), f"{surface.parent.name}/{surface.name}")
    numbers = ",".join(map(str, code))
    header.write_text(f"constexpr unsigned char frozen_surface[] = {{{numbers}}};\n", encoding="utf-8")


if __name__ == "__main__":
    main()
