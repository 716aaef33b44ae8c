"""The edges one index has and another lacks, each checked with the server's go-to-definition.

Usage: edge_diff.py NAME BEFORE_DB [--out DIR] [--cache DIR]   (after `run --corpus NAME`)

BEFORE_DB is the index of an earlier tamsel (a copy of `OUT/NAME/.tamsel/index.db` saved from
its run); the run's own index is the after. An edge is (file, line, caller, callee). Each added
or removed edge is asked at every occurrence of the callee's name on its line: `confirmed` when
a definition lands in the callee, `refuted` when one lands elsewhere in the corpus and none in
it, `unconfirmed` when the server finds nothing in the corpus. The sample's figures rarely move
for a rule that changes a few dozen edges of a whole corpus: this reads all of them.
"""

import argparse
import pathlib
import re
import sqlite3
from types import SimpleNamespace

import callers

EDGES = """SELECT f.path, e.line, coalesce(c.fqn, '?'), t.fqn, tf.path, t.start_line, t.end_line
FROM edges e JOIN files f ON f.id = e.file_id LEFT JOIN symbols c ON c.id = e.caller_id
JOIN symbols t ON t.id = e.callee_id JOIN files tf ON tf.id = t.file_id"""


def edges(db):
    return {row[:4]: row[4:] for row in sqlite3.connect(db).execute(EDGES)}


def verdict(session, root, edge, callee):
    rel, line, _, fqn = edge
    text = callers.line_at(root, rel, line - 1) or ""
    found = "unconfirmed"
    for m in re.finditer(r"\b" + re.escape(fqn.rsplit(".", 1)[-1]) + r"\b", text):
        if session.probe is None:
            session.probe = SimpleNamespace(file=rel, line=line - 1, col=m.start())
        places = session.definition(rel, line - 1, m.start())
        if any(t == callee[0] and callee[1] <= l + 1 <= callee[2] for t, l in places):
            return "confirmed"
        if any(t is not None for t, _ in places):
            found = "refuted"
    return found


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("name", choices=list(callers.CORPORA))
    ap.add_argument("before", type=pathlib.Path)
    ap.add_argument("--out", type=pathlib.Path, default=callers.REPO / "bench" / "out" / "callers")
    ap.add_argument("--cache", type=pathlib.Path, default=pathlib.Path("/tmp/tamsel-callers-cache"))
    args = ap.parse_args()
    corpus_def = callers.CORPORA[args.name]
    root = args.out / args.name
    before, after = edges(args.before), edges(root / ".tamsel" / "index.db")
    cache = callers.Cache(args.cache / f"{args.name}.json", corpus_def["server"])
    session = callers.Session(corpus_def, root, args.out, cache,
                              callers.source_files(root, corpus_def))
    counts = {}
    try:
        for sign, mine, other in (("+", after, before), ("-", before, after)):
            for edge in sorted(set(mine) - set(other)):
                v = verdict(session, root, edge, mine[edge])
                counts[sign + v] = counts.get(sign + v, 0) + 1
                print(f"{sign} {v:11s} {edge[0]}:{edge[1]} {edge[2]} -> {edge[3]}", flush=True)
    finally:
        session.close()
    print(f"{args.name}: {len(before)} -> {len(after)} edges;",
          ", ".join(f"{k} {v}" for k, v in sorted(counts.items())) or "no change")


if __name__ == "__main__":
    main()
