"""Shows why each extra and missed caller of a measured corpus happened, site by site.

Usage: explain.py NAME [--out DIR] [--cache DIR]   (after `run --corpus NAME`)

For a missed caller: the server's call sites in that caller, their source line, and what the
index recorded at that line (call_sites: evidence, target, callee). For an extra: the index's site
and where the server's go-to-definition goes from it. Reads the copy, its index and the cache.
"""

import argparse
import json
import pathlib
import sqlite3
import sys

import callers
import code_map


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("name", choices=list(callers.CORPORA))
    ap.add_argument("--out", type=pathlib.Path, default=callers.REPO / "bench" / "out" / "callers")
    ap.add_argument("--cache", type=pathlib.Path, default=pathlib.Path("/tmp/tamsel-callers-cache"))
    args = ap.parse_args()
    corpus_def = callers.CORPORA[args.name]
    root = args.out / args.name
    cache = json.loads((args.cache / f"{args.name}.json").read_text())
    db = sqlite3.connect(root / ".tamsel" / "index.db")
    texts = {}

    def line_of(rel, line):
        if rel not in texts:
            texts[rel] = (root / rel).read_text(errors="replace").split("\n")
        return texts[rel][line].strip()[:140] if line < len(texts[rel]) else ""

    maps = {}

    def pair_of(rel, line):
        if rel not in maps:
            text = (root / rel).read_text(errors="replace")
            test = code_map.is_test_path(rel, corpus_def["language"])
            if corpus_def["language"] == "python":
                got = code_map.python_file(rel, text, test)
            elif corpus_def["language"] == "go":
                got = code_map.go_file(rel, text, test)
            else:
                got = code_map.from_document_symbols(rel, cache["symbols"].get(rel, []), test,
                                                     text, corpus_def["language"])
            maps[rel] = got[1] if got else None
        m = maps[rel]
        return m.enclosing(line) if m else "<unmapped>"

    def index_rows(rel, line):
        return db.execute(
            "SELECT c.evidence, c.target_fqn, c.receiver, c.member, coalesce(s.fqn || ' at ' || sf.path || "
            "':' || s.start_line, '-') FROM call_sites c JOIN files f ON f.id = c.file_id "
            "LEFT JOIN symbols s ON s.id = c.callee_id LEFT JOIN files sf ON sf.id = s.file_id "
            "WHERE f.path = ? AND c.line = ?", (rel, line + 1)).fetchall()

    def show(row, name):
        evidence, target, receiver, member, callee = row
        if name in (target, member, callee) or name in f"{target} {callee}":
            print(f"      index: {evidence} target={target} receiver={receiver} member={member} "
                  f"callee={callee}")

    incoming = {}
    for key, sites in cache["incoming"].items():
        rel, line, _ = key.rsplit(":", 2)
        incoming[(rel, int(line) + 1)] = sites or []
    for row in open(args.out / f"{args.name}.details.txt"):
        print(row.rstrip("\n"))
        if row.startswith("tests route"):
            continue
        kind, definition, rest = row.rstrip("\n").split("\t")
        drel, dline = definition.split()[0].rsplit(":", 1)
        name = definition.split()[1].split(".")[-1].split("::")[-1]
        if kind == "missed":
            caller_file, caller = rest[3:].split(" ", 1)
            for rel, line, col in incoming.get((drel, int(dline)), []):
                if rel == caller_file and pair_of(rel, line) == caller and \
                        callers.is_call(root, rel, line, col):
                    print(f"    {rel}:{line + 1}: {line_of(rel, line)}")
                    for row in index_rows(rel, line):
                        show(row, name)
        elif kind.startswith("extra"):
            rel, line = rest[3:].split(" ", 1)[0].rsplit(":", 1)
            line = int(line) - 1
            print(f"    {rel}:{line + 1}: {line_of(rel, line)}")
            for row in index_rows(rel, line):
                show(row, name)
            for key, places in cache["definition"].items():
                krel, kline, _ = key.rsplit(":", 2)
                if krel == rel and int(kline) == line:
                    for target, tline in places:
                        print(f"      server definition: {target}:{tline + 1}")


if __name__ == "__main__":
    sys.exit(main())
