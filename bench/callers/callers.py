"""Compares the index's callers with a language server's incoming calls, corpus by corpus.

Usage: callers.py --tamsel BIN [--corpus NAME ...] [--sample N] [--out DIR] [--cache DIR]
"""

import argparse
import contextlib
import functools
import json
import os
import pathlib
import random
import re
import shutil
import sqlite3
import subprocess
import sys
import time

import code_map
import lsp

HERE = pathlib.Path(__file__).resolve().parent
REPO = HERE.parent.parent
NODE_BIN = REPO / "node_modules" / ".bin"
GOROOT_SRC = pathlib.Path("/usr/share/go-1.19/src")
SEED = 19
UNPLACED = "<unplaced>"  # a call site the server listed in no file it names

# name: where it comes from, its language, which server answers, how much of it is sampled.
CORPORA = {
    "stdlib": dict(language="python", server="pyright", source="/usr/lib/python3.11",
                   exclude=["site-packages", "dist-packages", "config-3.11-*", "lib-dynload"]),
    "django": dict(language="python", server="pyright",
                   source="/usr/lib/python3/dist-packages/django", under="django"),
    "gostd": dict(language="go", server="gopls", source=str(GOROOT_SRC),
                  exclude=["cmd"], server_root=str(GOROOT_SRC)),
    # Its tests import from src/ through pytest's pythonpath, which pyright does not read.
    "shop": dict(language="python", server="pyright", source="tests/data/shop", small=True,
                 extra_paths=["src", "tests"]),
    "lang_go": dict(language="go", server="gopls", source="tests/data/lang_go", small=True),
    "lang_ts": dict(language="typescript", server="tsserver", source="tests/data/lang_ts",
                    small=True),
    "lang_js": dict(language="javascript", server="tsserver", source="tests/data/lang_js",
                    small=True),
    # googletest and googlemock with their own tests, flags as their CMake build gives them.
    "gtest": dict(language="cpp", server="clangd", source="/usr/src/googletest",
                  flags=["-xc++", "-std=c++17", "-Igoogletest/include", "-Igoogletest",
                         "-Igooglemock/include", "-Igooglemock"]),
    # The tree-sitter runtime that package-lock.json pins, flags as its binding.gyp gives them.
    "tsrt": dict(language="c", server="clangd",
                 source="node_modules/tree-sitter/vendor/tree-sitter/lib",
                 flags=["-xc", "-std=c11", "-Isrc", "-Iinclude", "-D_POSIX_C_SOURCE=200112L",
                        "-D_DEFAULT_SOURCE"]),
    "lang_cpp": dict(language="cpp", server="clangd", source="tests/data/lang_cpp", small=True),
    "lang_c": dict(language="c", server="clangd", source="tests/data/lang_c", small=True),
    "lang_rust": dict(language="rust", server="rust-analyzer", source="tests/data/lang_rust",
                      small=True),
}
SUFFIXES = {"python": (".py",), "go": (".go",), "typescript": (".ts", ".tsx"),
            "javascript": (".js", ".mjs", ".cjs"), "cpp": (".cpp", ".cc", ".h", ".hpp"),
            "c": (".c", ".h"), "rust": (".rs",)}
LANGUAGE_ID = {"python": "python", "go": "go", "typescript": "typescript",
               "javascript": "javascript", "cpp": "cpp", "c": "c", "rust": "rust"}


def log(*args):
    print(*args, file=sys.stderr, flush=True)


def prepare_copy(name, corpus_def, out):
    """A fresh copy of the corpus for the index (and the server, unless it reads the original)."""
    root = out / name
    if root.exists():
        shutil.rmtree(root)
    source = pathlib.Path(corpus_def["source"])
    if not source.is_absolute():
        source = REPO / source
    dest = root / corpus_def.get("under", "")
    dest.mkdir(parents=True)
    tar = ["tar", "cf", "-", "--exclude=__pycache__", "--exclude=.tamsel"]
    if corpus_def["language"] == "go":
        tar.append("--exclude=testdata")  # not Go packages: gopls does not load them
    tar += [f"--exclude=./{e}" for e in corpus_def.get("exclude", [])] + ["."]
    pack = subprocess.Popen(tar, cwd=source, stdout=subprocess.PIPE)
    subprocess.run(["tar", "xf", "-", "-C", str(dest)], stdin=pack.stdout, check=True)
    pack.wait()
    if corpus_def["server"] == "clangd":
        flags = corpus_def.get("flags") or (["-xc++", "-std=c++20", "-Iinclude"]
                                            if corpus_def["language"] == "cpp" else ["-Iinclude"])
        (root / "compile_flags.txt").write_text("".join(f + "\n" for f in flags))
    if corpus_def["server"] == "tsserver":
        # Without a project file the server sees only the open files and what they import.
        (root / "tsconfig.json").write_text(json.dumps({"compilerOptions": {
            "allowJs": True, "checkJs": False, "noEmit": True, "target": "es2022",
            "module": "nodenext"}, "include": ["**/*"]}))
    if corpus_def["language"] == "go" and not (root / "go.mod").exists():
        # gopls reads only go versions it knows: the local one, with no requirements.
        (root / "go.mod").write_text("module example.com/corpus\n\ngo 1.19\n")
    return root


def source_files(root, corpus_def):
    files = []
    for dirpath, dirnames, filenames in os.walk(root):
        dirnames[:] = sorted(d for d in dirnames if not d.startswith(".") and d != "testdata")
        for f in sorted(filenames):
            if f.endswith(SUFFIXES[corpus_def["language"]]):
                files.append(str(pathlib.Path(dirpath, f).relative_to(root)))
    return files


def start_server(corpus_def, root, out):
    kind = corpus_def["server"]
    logf = open(out / f"{kind}.log", "a")
    if kind == "pyright":
        # A larger heap than node's default keeps pyright from dropping its type cache.
        return lsp.Server([str(NODE_BIN / "pyright-langserver"), "--stdio"], root, log=logf,
                          env={"NODE_OPTIONS": "--max-old-space-size=8192"},
                          settings={"python": {"analysis": {
                              "diagnosticMode": "openFilesOnly",
                              "extraPaths": corpus_def.get("extra_paths", [])}}})
    if kind == "gopls":
        return lsp.Server(["gopls"], root, env=go_env(corpus_def), log=logf)
    if kind == "tsserver":
        return lsp.Server([str(NODE_BIN / "typescript-language-server"), "--stdio"], root,
                          log=logf, init_options={"tsserver": {
                              "path": str(REPO / "node_modules/typescript/lib")}})
    if kind == "clangd":
        # Every file is opened and kept open, so the index of open files holds every reference;
        # a background index would parse each file a second time.
        return lsp.Server(["clangd", "--background-index=false", "-j=1"], root, log=logf)
    if kind == "rust-analyzer":
        # Debian's rust-web-analyzer; `cargo metadata` runs offline (no dependencies), and the
        # standard library's sources come from rust-web-src (macros such as assert_eq!, Box).
        src = sorted(pathlib.Path("/usr/src").glob("rustc-*/library"))
        env = {"RUST_SRC_PATH": str(src[-1])} if src else {}
        return lsp.Server(["/usr/bin/rust-analyzer"], root, log=logf, env=env)
    raise ValueError(kind)


class Cache:
    """The server's answers, by corpus: they depend on the corpus and the server, not the index."""

    def __init__(self, path, server_name):
        self.path = path
        self.data = {"server": server_name, "symbols": {}, "incoming": {}, "definition": {}}
        if path.exists():
            data = json.loads(path.read_text())
            if data.get("server") == server_name:
                self.data = data
        self.dirty = 0

    def get(self, table, key):
        return self.data.setdefault(table, {}).get(key, "missing")

    def put(self, table, key, value):
        self.data.setdefault(table, {})[key] = value
        self.dirty += 1
        if self.dirty >= 10:
            self.save()

    def save(self):
        tmp = self.path.with_suffix(".tmp")
        tmp.write_text(json.dumps(self.data))
        tmp.replace(self.path)
        self.dirty = 0


class Session:
    """Starts the language server only when an answer is not cached."""

    def __init__(self, corpus_def, server_root, out, cache, files):
        self.corpus_def, self.server_root, self.out, self.cache = corpus_def, server_root, out, cache
        self.files = files
        self.server = None
        # clangd finds callers in its index of the files it has parsed: parse them all, keep them.
        self.keep_open = corpus_def["server"] == "clangd"
        # gopls and pyright read unopened files from disk; opening one makes gopls type-check its
        # package again and pyright check the whole file.
        self.never_open = corpus_def["server"] in ("gopls", "pyright")
        self.probe = None  # a definition to ask until the server has found the workspace's files
        self.texts, self.maps = {}, {}
        self.loaded = False

    def _server(self):
        if self.server is None:
            log(f"  starting {self.corpus_def['server']} on {self.server_root}")
            self.server = start_server(self.corpus_def, self.server_root, self.out)
            if self.keep_open:
                for rel in self.files:
                    path = str(self.server_root / rel)
                    self.server.open(path, LANGUAGE_ID[self.corpus_def["language"]])
                    found = self.server.request("textDocument/documentSymbol",
                                                {"textDocument": {"uri": lsp.uri(path)}}, 300)
                    self.cache.put("symbols", rel, found or [])
                    self.inactive(rel)
            if self.corpus_def["server"] in ("pyright", "rust-analyzer") and self.probe:
                self._wait_until_ready()
        return self.server

    def _wait_until_ready(self):
        """pyright and rust-analyzer answer null about files they have not loaded yet."""
        d = self.probe
        deadline = time.monotonic() + 300
        while time.monotonic() < deadline:
            if self.server.request("textDocument/prepareCallHierarchy", {
                    "textDocument": {"uri": lsp.uri(self.server_root / d.file)},
                    "position": {"line": d.line, "character": d.col}}, 300):
                return
            time.sleep(2)
        log(f"  {self.corpus_def['server']} still knows nothing of {d.file} after 300 s")

    @contextlib.contextmanager
    def _opened(self, rel):
        s = self._server()
        path = str(self.server_root / rel)
        if self.keep_open or self.never_open:
            yield {"uri": lsp.uri(path)}
            return
        s.open(path, LANGUAGE_ID[self.corpus_def["language"]])
        try:
            yield {"uri": lsp.uri(path)}
        finally:
            s.notify("textDocument/didClose", {"textDocument": {"uri": lsp.uri(path)}})

    def _ask(self, method, rel, line, col, timeout=1800):
        with self._opened(rel) as doc:
            return self.server.request(method, {"textDocument": doc, "position": {
                "line": line, "character": col}}, timeout)

    def _rel(self, file_uri):
        p = pathlib.Path(lsp.path_of(file_uri))
        try:
            return str(p.resolve().relative_to(self.server_root.resolve()))
        except ValueError:
            return None

    def incoming(self, d):
        """Call sites (file, line, column) of the definition d, or None if the server knows none."""
        key = f"{d.file}:{d.line}:{d.col}"
        hit = self.cache.get("incoming", key)
        if hit != "missing":
            return hit
        sites = None
        if self.corpus_def["server"] == "rust-analyzer" and not self.loaded:
            # it loads the workspace (cargo metadata, then every crate) after it starts
            self._server()
            self.probe, self.loaded = d, True
            self._wait_until_ready()
        try:
            with self._opened(d.file) as doc:
                items = self.server.request("textDocument/prepareCallHierarchy", {
                    "textDocument": doc, "position": {"line": d.line, "character": d.col}}, 1800)
                calls = items and self.server.request("callHierarchy/incomingCalls",
                                                      {"item": items[0]}, 1800)
        except RuntimeError as e:
            # A file outside the server's build (another platform's Go file): unknown to it.
            if self.server.answers.get("closed"):
                raise
            log(f"  {d.file}:{d.line + 1}: {e}")
            items = None
        if items:
            sites = []
            for call in calls or []:
                rel = self._rel(call["from"]["uri"])
                for r in call.get("fromRanges") or [call["from"]["selectionRange"]]:
                    site = [rel, r["start"]["line"], r["start"]["character"]]
                    if self.corpus_def["server"] == "clangd":
                        site = self._placed(d, call["from"], site)
                    if site[0] is not None:
                        sites.append(site)
        self.cache.put("incoming", key, sites)
        return sites

    def _lines(self, rel):
        if rel not in self.texts:
            self.texts[rel] = (self.server_root / rel).read_text(errors="replace").split("\n")
        return self.texts[rel]

    def _line(self, rel, line):
        lines = self._lines(rel)
        return lines[line] if 0 <= line < len(lines) else ""

    def _placed(self, d, caller, site):
        """Where a call clangd lists really is.

        clangd 14 gives the caller's file with the ranges of the file the call is in: for a caller
        declared inside a macro (every TEST body, the TEST macro's own calls) that is the macro's
        header. A site that lies in a function of the caller's name (by the benchmark's map; or
        outside every function, for a caller that is a variable's initializer) is
        taken as it is; another is looked for at the same line and column in the corpus's files,
        where d's name (or else a macro's) starts there inside a function of that name; when no
        file or several have it, the site is kept as UNPLACED and counted apart.
        """
        rel, line, col = site
        name = re.split(r"::|\.", caller["name"])[-1]

        def fits(f, word):
            text = self._line(f, line)
            return (re.match(word, text[col:]) and (col == 0 or not re.match(r"\w", text[col - 1]))
                    and re.split(r"::|\.", self._enclosing(f, line))[-1] in (name, "<module>"))

        if rel is not None and fits(rel, r"\w"):
            return site
        for word in (re.escape(d.name) + r"\b", r"\w+\s*\("):
            found = [f for f in self.files if fits(f, word)]
            if found:
                return [found[0], line, col] if len(found) == 1 else [UNPLACED, line, col]
        return [UNPLACED, line, col]

    def _enclosing(self, rel, line):
        if rel not in self.maps:
            got = code_map.from_document_symbols(rel, self.symbols(rel), False,
                                                 "\n".join(self._lines(rel)),
                                                 self.corpus_def["language"])
            self.maps[rel] = got[1]
        return self.maps[rel].enclosing(line)

    def definition(self, rel, line, col):
        key = f"{rel}:{line}:{col}"
        hit = self.cache.get("definition", key)
        if hit != "missing":
            return hit
        try:
            found = self._ask("textDocument/definition", rel, line, col, 600) or []
        except (RuntimeError, TimeoutError) as e:
            log(f"  definition at {key}: {e}")
            found = []
        if isinstance(found, dict):
            found = [found]
        places = []
        for loc in found:
            target = self._rel(loc.get("uri") or loc.get("targetUri"))
            rng = loc.get("range") or loc.get("targetSelectionRange")
            places.append([target, rng["start"]["line"]])
        self.cache.put("definition", key, places)
        return places

    def inactive(self, rel):
        """0-based lines of a C or C++ file in a branch of #if the build leaves out.

        clangd marks them as semantic tokens of type `comment` (it marks no real comments).
        """
        hit = self.cache.get("inactive", rel)
        if hit != "missing":
            return hit
        s = self._server()
        legend = s.capabilities["semanticTokensProvider"]["legend"]["tokenTypes"]
        try:
            with self._opened(rel) as doc:
                data = (s.request("textDocument/semanticTokens/full", {"textDocument": doc},
                                  300) or {}).get("data", [])
        except RuntimeError as e:  # a file clangd was not given
            log(f"  semantic tokens of {rel}: {e}")
            data = []
        lines, line = set(), 0
        for i in range(0, len(data), 5):
            line += data[i]
            if legend[data[i + 3]] == "comment":
                lines.add(line)
        self.cache.put("inactive", rel, sorted(lines))
        return sorted(lines)

    def symbols(self, rel):
        hit = self.cache.get("symbols", rel)
        if hit != "missing":
            return hit
        with self._opened(rel) as doc:
            found = self.server.request("textDocument/documentSymbol", {"textDocument": doc},
                                        300) or []
        self.cache.put("symbols", rel, found)
        return found

    def close(self):
        self.cache.save()
        if self.server:
            self.server.close()


def map_corpus(corpus_def, files, root, session):
    """Definitions and enclosing-function maps of every file."""
    defs, maps, unparsed = [], {}, 0
    for rel in files:
        test = code_map.is_test_path(rel, corpus_def["language"])
        if corpus_def["language"] == "python":
            got = code_map.python_file(rel, (root / rel).read_text(errors="replace"), test)
        elif corpus_def["language"] == "go":
            got = code_map.go_file(rel, (root / rel).read_text(errors="replace"), test)
        else:
            got = code_map.from_document_symbols(rel, session.symbols(rel), test,
                                                 (root / rel).read_text(errors="replace"),
                                                 corpus_def["language"])
        if got is None:
            unparsed += 1
            continue
        file_defs, maps[rel] = got
        defs += file_defs
    return defs, maps, unparsed


GO_ENV = {"GOPROXY": "off", "GOFLAGS": "-mod=mod", "GO111MODULE": "on", "GOTOOLCHAIN": "local"}


def go_env(corpus_def):
    # The standard library's requirements are vendored; gopls reads the original tree.
    return {**GO_ENV, "GOFLAGS": "-mod=vendor"} if corpus_def.get("server_root") else GO_ENV


def go_buildable(corpus_def, root):
    """The Go files that build here (linux/amd64): gopls knows nothing of another platform's."""
    fmt = "{{.Dir}}" + "".join("{{range .%s}}\t{{.}}{{end}}" % k for k in
                              ("GoFiles", "CgoFiles", "TestGoFiles", "XTestGoFiles"))
    out = subprocess.run(["go", "list", "-e", "-f", fmt,
                          "std" if corpus_def.get("server_root") else "./..."],
                         cwd=root, capture_output=True, text=True, check=True,
                         env={**os.environ, **go_env(corpus_def)}).stdout
    files = set()
    for line in out.splitlines():
        folder, *names = line.split("\t")
        rel = os.path.relpath(folder, root)
        files |= {os.path.normpath(os.path.join(rel, n)) for n in names}
    return files


def sample(defs, n):
    """A seeded random sample of product definitions, fixed by the corpus alone.

    In the order drawn: a smaller n draws the first n of a larger one.
    """
    pool = [d for d in defs if d.sampled and not d.test and "/vendor/" not in f"/{d.file}"]
    pool.sort(key=lambda d: (d.file, d.line))
    if n <= 0 or n >= len(pool):
        return pool, len(pool)
    return random.Random(SEED).sample(pool, n), len(pool)


def index_callers(db, d):
    """Call sites (file, 0-based line) that the index links to d; None if it has no such symbol."""
    row = db.execute(
        "SELECT s.id FROM symbols s JOIN files f ON f.id = s.file_id WHERE f.path = ? AND "
        "s.name = ? AND s.start_line <= ? AND s.end_line >= ? AND s.kind NOT IN "
        "('class', 'module', 'struct', 'interface', 'enum', 'trait', 'namespace') "
        "ORDER BY s.start_line DESC LIMIT 1", (d.file, d.name, d.line + 1, d.line + 1)).fetchone()
    if row is None:
        return None
    return [(path, line - 1) for path, line in db.execute(
        "SELECT f.path, e.line FROM edges e JOIN files f ON f.id = e.file_id "
        "WHERE e.callee_id = ?", (row[0],))]


def reaches(places, d):
    return any(target == d.file and d.start <= line <= d.end for target, line in places)


@functools.lru_cache(maxsize=256)
def file_lines(path):
    return pathlib.Path(path).read_text(errors="replace").split("\n")


def line_at(root, rel, line):
    try:
        return file_lines(str(root / rel))[line]
    except (IndexError, OSError):
        return ""


def is_call(root, rel, line, col):
    """Whether the name at (line, col) is called: followed by (, [types]( or <types>(."""
    try:
        text = (root / rel).read_text(errors="replace").split("\n")[line][col:]
    except (IndexError, OSError):
        return True
    return re.match(r"\w+\s*(\[[^\]]*\]\s*|<([^<>;]|<[^<>;]*>)*>\s*)?\(", text) is not None


def direct_sites(session, d, sites, root):
    """The server's call sites that call d itself, with how many were left out and why.

    gopls and clangd list every reference, not only calls (a function passed as a value); gopls
    also lists calls through an interface method that d implements: dynamic dispatch, which no
    static index links. Both are counted apart; a site counts when it is a call and (for gopls)
    its go-to-definition reaches d.
    """
    if session.corpus_def["server"] == "clangd":
        # clangd lists every reference inside a function: `.read = f` or `qsort(..., f)` too.
        calls = [s for s in sites if s[0] != UNPLACED and is_call(root, *s)]
        return calls, 0, len(sites) - len(calls)
    if session.corpus_def["server"] != "gopls":
        return sites, 0, 0
    calls = [s for s in sites if is_call(root, *s)]
    kept = [s for s in calls if (places := session.definition(*s)) == [] or reaches(places, d)]
    return kept, len(calls) - len(kept), len(sites) - len(calls)


def pair(maps, rel, line):
    m = maps.get(rel)
    return (rel, m.enclosing(line) if m else "<unmapped>")


def through_alias(session, d, place, root):
    """A call through a name bound to the method (`f = obj.m`, `self.f = self._x.m`): the server's
    definition is that binding; one more go-to-definition, at the method's name on the binding's
    right side, says whether it is d."""
    target, line = place
    if target is None:
        return False
    try:
        text = (root / target).read_text(errors="replace").split("\n")[line]
    except (IndexError, OSError):
        return False
    binding = re.match(r"\s*[\w.]+\s*=(?!=)", text)
    if not binding:
        return False
    for m in re.finditer(r"\.(" + re.escape(d.name) + r")\b", text[binding.end():]):
        if reaches(session.definition(target, line, binding.end() + m.start(1)), d):
            return True
    return False


def confirm(session, d, sites, root):
    """'yes' when go-to-definition at one of the sites reaches d, 'no' when it reaches elsewhere
    in the corpus."""
    verdict = "unknown"
    for rel, line in sites:
        try:
            text = (root / rel).read_text(errors="replace").split("\n")[line]
        except (IndexError, OSError):
            continue
        for m in re.finditer(r"\b" + re.escape(d.name) + r"\b", text):
            places = session.definition(rel, line, m.start())
            if reaches(places, d) or any(through_alias(session, d, p, root) for p in places):
                return "yes"
            # A definition outside the corpus (a stub of pyright's own) neither confirms nor refutes.
            if any(target is not None for target, _ in places):
                verdict = "no"
    return verdict


def explore_tests(tamsel, root, db, d, test_sites):
    """Whether 'tests for NAME' names d and lists a test that calls it.

    A listed test counts when one of d's call sites in test code lies within the test's extent
    as the index records it.
    """
    out = subprocess.run([tamsel, "explore", "--repo", str(root), f"tests for {d.name}"],
                         capture_output=True, text=True, timeout=120)
    try:
        answer = json.loads(out.stdout)
    except json.JSONDecodeError:
        return False
    def extent_end(item):
        row = db.execute("SELECT max(s.end_line) FROM symbols s JOIN files f ON f.id = s.file_id "
                         "WHERE f.path = ? AND s.start_line = ?",
                         (item.get("file"), item.get("line")))
        return (row.fetchone() or [None])[0] or item.get("line", 0)

    symbols = answer.get("symbols") or []
    if not symbols or symbols[0].get("file") != d.file:
        return False
    # The first symbol starts within d, or its extent holds d's name: the index starts a C++
    # template at `template <...>`, clangd after it.
    first = symbols[0].get("line", 0)
    if not d.start <= first - 1 <= d.end and not first <= d.line + 1 <= extent_end(symbols[0]):
        return False
    for t in answer.get("tests") or []:
        end = extent_end(t)
        if any(f == t.get("file") and t.get("line", 0) <= line + 1 <= end
               for f, line in test_sites):
            return True
    return False


def ratio(a, b):
    return f"{a / b:.2f}" if b else "-"


def measure(name, corpus_def, args):
    t0 = time.monotonic()
    root = prepare_copy(name, corpus_def, args.out)
    server_root = pathlib.Path(corpus_def.get("server_root", root))
    files = source_files(root, corpus_def)
    cache = Cache(args.cache / f"{name}.json", corpus_def["server"])
    session = Session(corpus_def, server_root, args.out, cache, files)
    try:
        defs, maps, unparsed = map_corpus(corpus_def, files, root, session)
        n = 0 if corpus_def.get("small") else args.sample
        candidates, buildable = defs, None
        if corpus_def["language"] == "go":
            buildable = go_buildable(corpus_def, server_root)
            candidates = [d for d in defs if d.file in buildable]
        chosen, pool = sample(candidates, n)
        session.probe = chosen[0] if chosen else None
        log(f"== {name}: {len(files)} files ({unparsed} unparsed), {pool} product definitions, "
            f"{len(chosen)} sampled")
        for i, d in enumerate(chosen):
            if cache.get("incoming", f"{d.file}:{d.line}:{d.col}") == "missing":
                t = time.monotonic()
                sites = session.incoming(d)
                if sites:
                    direct_sites(session, d, sites, root)
                log(f"  [{i + 1}/{len(chosen)}] {d.file}:{d.line + 1} {d.label}: "
                    f"{'-' if sites is None else len(sites)} sites, {time.monotonic() - t:.1f} s")
        cache.save()
        if args.server_only:
            return None
        subprocess.run([args.tamsel, "index", "--repo", str(root)], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        db = sqlite3.connect(root / ".tamsel" / "index.db")
        names = {d.name for d in chosen}
        counts = {n: sum(1 for d in defs if d.name == n and not d.declaration) for n in names}
        s = dict(defs=len(chosen), unknown_server=0, unknown_index=0, truth=0, found=0,
                 truth_test=0, found_test=0, index_pairs=0, confirmed=0, refuted=0,
                 unconfirmed=0, once=0, once_ok=0, dispatched=0, not_calls=0,
                 other_platform=0, macro_only=0, macro_only_found=0, unplaced=0)
        extras, misses, missed = [], [], []
        for d in chosen:
            sites = session.incoming(d)
            got = index_callers(db, d)
            if sites is None:
                s["unknown_server"] += 1
                continue
            if got is None:
                s["unknown_index"] += 1
                got = []
            s["unplaced"] += sum(1 for site in sites if site[0] == UNPLACED)
            sites, dispatched, not_calls = direct_sites(session, d, list(sites), root)
            s["dispatched"] += dispatched
            s["not_calls"] += not_calls
            if buildable is not None:
                # Files for another platform are outside gopls's view: neither side counts them.
                s["other_platform"] += sum(1 for f, _ in got if f not in buildable)
                got = [(f, l) for f, l in got if f in buildable]
            if corpus_def["server"] == "clangd":
                # Nor does clangd parse a branch of #if that this build leaves out.
                inactive = {f: set(session.inactive(f)) for f in {f for f, _ in got}}
                s["other_platform"] += sum(1 for f, l in got if l in inactive[f])
                got = [(f, l) for f, l in got if l not in inactive[f]]
            truth = {pair(maps, f, l) for f, l, _ in sites}
            by_pair = {}
            for f, l in got:
                by_pair.setdefault(pair(maps, f, l), []).append((f, l))
            for p, where in by_pair.items():
                if p in truth:
                    continue
                verdict = confirm(session, d, where, root)
                if verdict == "yes":
                    truth.add(p)
                    sites += [[f, l, 0] for f, l in where]
                    s["confirmed"] += 1
                    extras.append(("confirmed", d, p, where[0][1] + 1))
                else:
                    s["refuted" if verdict == "no" else "unconfirmed"] += 1
                    extras.append(("refuted" if verdict == "no" else "unconfirmed", d, p,
                                   where[0][1] + 1))
            found = truth & set(by_pair)
            if corpus_def["server"] == "clangd":
                # Pairs whose every call comes from a macro's body (EXPECT_EQ, LOG): said apart.
                spelled = {pair(maps, f, l) for f, l, _ in sites
                           if re.search(r"\b" + re.escape(d.name) + r"\b", line_at(root, f, l))}
                s["macro_only"] += len(truth - spelled)
                s["macro_only_found"] += len(found - spelled)
            missed += [(d, p) for p in sorted(truth - found)]
            tests = {p for p in truth if code_map.is_test_path(p[0], corpus_def["language"])}
            s["truth"] += len(truth)
            s["found"] += len(found)
            s["truth_test"] += len(tests)
            s["found_test"] += len(found & tests)
            s["index_pairs"] += len(by_pair)
            if tests and counts[d.name] == 1:
                s["once"] += 1
                test_sites = [(f, l) for f, l, _ in sites
                              if code_map.is_test_path(f, corpus_def["language"])]
                ok = explore_tests(args.tamsel, root, db, d, test_sites)
                s["once_ok"] += ok
                if not ok:
                    misses.append(d)
        cache.save()
        s["seconds"] = round(time.monotonic() - t0, 1)
        s["pool"] = pool
        with open(args.out / f"{name}.details.txt", "w") as f:
            for verdict, d, p, line in extras:
                f.write(f"extra {verdict}\t{d.file}:{d.line + 1} {d.label}\t<- {p[0]}:{line} "
                        f"{p[1]}\n")
            for d, p in missed:
                f.write(f"missed\t{d.file}:{d.line + 1} {d.label}\t<- {p[0]} {p[1]}\n")
            for d in misses:
                f.write(f"tests route misses\t{d.file}:{d.line + 1} {d.label}\n")
        return s
    finally:
        session.close()


def report(name, corpus_def, s):
    tp = s["found"]
    product = s["truth"] - s["truth_test"]
    return (f"| {name} | {corpus_def['server']} | {s['defs']} of {s['pool']} | {s['truth']} | "
            f"{ratio(tp, s['truth'])} | {ratio(tp - s['found_test'], product)} | "
            f"{ratio(s['found_test'], s['truth_test'])} ({s['truth_test']}) | "
            f"{ratio(tp, tp + s['refuted'])} | {ratio(tp, s['index_pairs'])} | "
            f"{s['confirmed']}/{s['refuted']}/{s['unconfirmed']} | "
            f"{s['once_ok']}/{s['once']} | {s['unknown_server']}/{s['unknown_index']} | "
            f"{s['dispatched']} / {s['not_calls']} / {s['other_platform']} | {s['seconds']} |")


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("--tamsel", default=str(REPO / "build" / "tamsel"))
    ap.add_argument("--corpus", action="append", choices=list(CORPORA))
    ap.add_argument("--sample", type=int, default=150)
    ap.add_argument("--out", type=pathlib.Path, default=REPO / "bench" / "out" / "callers")
    # Shared by every checkout: the answers do not depend on the index under test.
    ap.add_argument("--cache", type=pathlib.Path, default=pathlib.Path("/tmp/tamsel-callers-cache"))
    ap.add_argument("--server-only", action="store_true",
                    help="only fill the cache of the language servers' answers")
    args = ap.parse_args()
    args.tamsel = str(pathlib.Path(args.tamsel).resolve())
    args.out.mkdir(parents=True, exist_ok=True)
    args.cache.mkdir(parents=True, exist_ok=True)
    names = args.corpus or list(CORPORA)
    rows = []
    for name in names:
        s = measure(name, CORPORA[name], args)
        if s:
            rows.append(report(name, CORPORA[name], s))
            log(rows[-1])
            if s["unplaced"]:
                log(f"  {name}: {s['unplaced']} of the 'not a call' sites could not be placed")
            if s["macro_only"]:
                log(f"  {name}: {s['macro_only']} callers call only from a macro's body, "
                    f"{s['macro_only_found']} of them found; recall without them "
                    f"{ratio(s['found'] - s['macro_only_found'], s['truth'] - s['macro_only'])}")
    if rows:
        print("| corpus | server | sampled of product defs | callers (server + confirmed) | "
              "recall | product | in tests (callers) | precision | strict precision | "
              "extras confirmed/refuted/unconfirmed | tests route | unknown to server/index | "
              "left out: through an interface / not a call / other platform or #if | seconds |")
        print("| --- " * 14 + "|")
        print("\n".join(rows))
        cmd = ["bench/callers/run", "--tamsel", args.tamsel, "--sample", str(args.sample)]
        for n in names:
            cmd += ["--corpus", n]
        print(f"\nreproduce: {' '.join(cmd)}")


if __name__ == "__main__":
    main()
