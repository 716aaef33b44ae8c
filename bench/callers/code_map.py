"""The benchmark's own map of a corpus: function definitions and the function enclosing each line.

Both the language server's and the index's callers are reduced through this one map, so neither
side's idea of "the caller" decides a match.
"""

import ast
import pathlib
import re
from dataclasses import dataclass, field

# Decorators that make a function something other than a called function.
NOT_CALLED = re.compile(r"^(property|cached_property|functools\.cached_property|overload|"
                        r"typing\.overload|.*\.(setter|getter|deleter))$")


@dataclass
class Def:
    file: str      # path relative to the corpus root
    name: str
    label: str     # Class.method or function, unique enough within the file
    line: int      # 0-based line of the name
    col: int       # 0-based column of the name (UTF-16 and bytes agree on these ASCII names)
    start: int     # first line, decorators included
    end: int       # last line
    test: bool     # defined in a test file
    sampled: bool  # a candidate for the sample (not nested, not a dunder, not a property)
    declaration: bool = False  # a declaration without a body (C and C++ headers)


@dataclass
class FileMap:
    ranges: list = field(default_factory=list)  # (start, end, label), outer before inner

    def enclosing(self, line):
        best = "<module>"
        for start, end, label in self.ranges:
            if start <= line <= end:
                best = label  # later ranges are nested deeper or come after
            elif start > line:
                break
        return best


def python_file(rel, text, test):
    """Definitions and ranges of one Python file; None when it does not parse."""
    try:
        tree = ast.parse(text)
    except (SyntaxError, ValueError):
        return None
    lines = text.split("\n")
    defs, ranges = [], []

    def visit(node, prefix, in_function):
        for child in ast.iter_child_nodes(node):
            if isinstance(child, (ast.FunctionDef, ast.AsyncFunctionDef)):
                label = prefix + child.name
                start = min([d.lineno for d in child.decorator_list] + [child.lineno]) - 1
                end = child.end_lineno - 1
                row = child.lineno - 1
                m = re.search(r"\bdef\s+(" + re.escape(child.name) + r")\b", lines[row])
                col = m.start(1) if m else child.col_offset
                decorators = [ast.unparse(d).split("(")[0] for d in child.decorator_list]
                dunder = child.name.startswith("__") and child.name.endswith("__")
                sampled = (not in_function and not dunder and
                           not any(NOT_CALLED.match(d) for d in decorators))
                defs.append(Def(rel, child.name, label, row, col, start, end, test, sampled))
                ranges.append((start, end, label))
                visit(child, label + ".", True)
            elif isinstance(child, ast.ClassDef):
                visit(child, prefix + child.name + ".", in_function)
            else:
                visit(child, prefix, in_function)

    visit(tree, "", False)
    ranges.sort(key=lambda r: (r[0], -r[1]))
    return defs, FileMap(ranges)


GO_FUNC = re.compile(r"^func\s+(?:\(\s*(?:\w+\s+)?\*?\s*(\w+)[^)]*\)\s*)?(\w+)\s*[\[(]")


def go_file(rel, text, test):
    """Top-level functions and methods of a gofmt-formatted Go file."""
    lines = text.split("\n")
    defs, ranges = [], []
    for i, line in enumerate(lines):
        m = GO_FUNC.match(line)
        if not m:
            continue
        end = i
        if line.rstrip().endswith("{"):
            end = next((j for j in range(i + 1, len(lines)) if lines[j].startswith("}")), i)
        recv, name = m.group(1), m.group(2)
        label = f"{recv}.{name}" if recv else name
        sampled = name not in ("init", "main", "_")
        defs.append(Def(rel, name, label, i, m.start(2), i, end, test, sampled))
        ranges.append((i, end, label))
    return defs, FileMap(ranges)


FUNCTION_KINDS = {6, 9, 12}  # method, constructor, function


def has_body(lines, rng):
    """Whether a C or C++ symbol's range holds a body (declarations, `= default` do not)."""
    start, end = rng["start"], rng["end"]
    if end["line"] >= len(lines):
        return False
    if start["line"] == end["line"]:
        return "{" in lines[start["line"]][start["character"]:end["character"]]
    part = [lines[start["line"]][start["character"]:]] + lines[start["line"] + 1:end["line"]]
    return "{" in "\n".join(part + [lines[end["line"]][:end["character"]]])


def from_document_symbols(rel, symbols, test, text, language=None):
    """Definitions and ranges from an LSP textDocument/documentSymbol answer (hierarchical)."""
    defs, ranges = [], []
    lines = text.split("\n")
    c_like = language in ("c", "cpp")

    def visit(items, prefix, in_function):
        for s in items or []:
            qualified = s["name"]
            while "<" in qualified and re.search(r"<[^<>]*>", qualified):
                # `FunctionMocker<R (Args...)>::InvokeWith`: template arguments out, not the name
                qualified = re.sub(r"<[^<>]*>", "", qualified)
            qualified = qualified.split("(")[0].split("<")[0]
            name = qualified.split("::")[-1]
            # An out-of-line `Cls::m` keeps its class: every TEST body is a `..._Test::TestBody`.
            label = prefix + (qualified if c_like else name)
            kids = s.get("children")
            if s["kind"] in FUNCTION_KINDS and "range" in s:
                start, end = s["range"]["start"]["line"], s["range"]["end"]["line"]
                sel = s.get("selectionRange", s["range"])["start"]
                col = sel["character"]
                if sel == s["range"]["start"] and sel["line"] < len(lines):
                    # Some servers select the whole declaration (an overload's implementation).
                    m = re.search(r"\b" + re.escape(name) + r"\b", lines[sel["line"]])
                    col = m.start() if m else col
                if c_like:
                    # Constructors, destructors and operators are called by syntax, not by name
                    # (as Python's dunders); one-line bodies count, declarations do not.
                    declaration = not has_body(lines, s["range"])
                    sampled = (not in_function and not declaration and s["kind"] != 9 and
                               not name.startswith(("operator", "~")))
                else:
                    declaration, sampled = start == end, not in_function and start < end
                defs.append(Def(rel, name, label, sel["line"], col, start, end, test, sampled,
                                declaration))
                ranges.append((start, end, label))
                visit(kids, label + ".", True)
            else:
                visit(kids, label + "." if s["kind"] in (2, 3, 5, 10, 11, 23) else prefix,
                      in_function)

    visit(symbols, "", False)
    ranges.sort(key=lambda r: (r[0], -r[1]))
    return defs, FileMap(ranges)


def is_test_path(rel, language):
    p = pathlib.PurePosixPath(rel)
    parts = set(p.parts[:-1])
    name = p.name
    if language == "go":
        return name.endswith("_test.go")
    if parts & {"test", "tests", "idle_test", "__tests__"}:
        return True
    if language == "python":
        return name.startswith("test_") or name.endswith("_test.py") or name == "conftest.py"
    return bool(re.search(r"(^test_|_test\.|_unittest\.|\.test\.|\.spec\.|Test\.java$)", name))
