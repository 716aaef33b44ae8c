#!/usr/bin/python3
"""A sentence model's cosine as one more rerank input, replayed and fitted as fit_rerank does.

Prototype outside the product: the vectors come from use_embed.js (run in Node in a scratch
folder), the ranking from fit_rerank's replay of the dumps (imported, not changed).

  use_rerank.py texts DIR   question and symbol texts of every dumped candidate -> DIR
  (node use_embed.js DIR/questions.txt DIR/questions.f32, the same for symbols and all)
  use_rerank.py fit DIR     the cosine's weight fitted alone, on the folds fit_rerank --quick runs
  use_rerank.py recall DIR  the cosine over every retrievable symbol (DIR/all.f32 from all.txt):
                            does it find answers that are not candidates?

--quality names the folder holding dumps/ and the corpus copies (default: this checkout's
bench/out/quality). A symbol's text: its name's words, its holder's (the class, or the module or
package), its docstring's first sentence.
"""
import argparse
import os
import re
import sqlite3
import sys

import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import fit_rerank as fr  # noqa: E402

DIMS = 512
CORPORA = ["stdlib", "django", "go"]
RETRIEVABLE = ("class", "function", "method", "interface", "struct", "enum", "trait", "type",
               "constructor", "macro", "namespace", "union", "record", "object")
_parts = re.compile(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|[0-9]+")


def name_words(name):
    return " ".join(p.lower() if not p.isupper() else p for p in _parts.findall(name))


def first_sentence(doc, most=40):
    text = re.split(r"\n\s*\n", (doc or "").strip())[0]
    text = " ".join(text.split())
    m = re.search(r"(?<=[.!?])\s", text)
    if m:
        text = text[:m.start()]
    return " ".join(text.split()[:most])


def symbol_text(fqn, doc):
    parts = fqn.split(".")
    head = name_words(parts[-1])
    if len(parts) > 1:
        head += f" ({name_words(parts[-2])})"
    sentence = first_sentence(doc)
    return f"{head}: {sentence}" if sentence else head


def retrievable(corpus):
    """Every production symbol of a kind the retriever ranks, in the index's order."""
    db = sqlite3.connect(f"file:{os.path.join(fr.OUT, corpus, '.tamsel', 'index.db')}?mode=ro",
                         uri=True)
    kinds = ",".join(f"'{k}'" for k in RETRIEVABLE)
    return db.execute("SELECT s.fqn, f.path, s.docstring FROM symbols s JOIN files f ON "
                      f"f.id = s.file_id WHERE s.kind IN ({kinds}) AND s.is_test = 0 "
                      "ORDER BY s.id").fetchall()


def keys(questions):
    return sorted({(q["corpus"], c["fqn"], c["path"]) for q in questions for c in q["rows"]})


def texts(out):
    questions, _ = fr.load()
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "questions.txt"), "w") as f:
        for q in questions:
            f.write(" ".join(q["text"].split()) + "\n")
    symbols = keys(questions)
    docs = {}
    for corpus in sorted({c for c, _, _ in symbols}):
        db = sqlite3.connect(f"file:{os.path.join(fr.OUT, corpus, '.tamsel', 'index.db')}?mode=ro",
                             uri=True)
        for fqn, path, doc in db.execute("SELECT s.fqn, f.path, s.docstring FROM symbols s "
                                         "JOIN files f ON f.id = s.file_id"):
            if doc and (corpus, fqn, path) not in docs:
                docs[(corpus, fqn, path)] = doc
    with open(os.path.join(out, "symbols.txt"), "w") as f:
        for key in symbols:
            f.write(symbol_text(key[1], docs.get(key)) + "\n")
    with open(os.path.join(out, "all.txt"), "w") as f:
        for corpus in CORPORA:
            for fqn, _, doc in retrievable(corpus):
                f.write(symbol_text(fqn, doc) + "\n")
    print(f"{len(questions)} questions, {len(symbols)} symbols "
          f"({sum(k in docs for k in symbols)} with a docstring) -> {out}")


def vectors(path, n):
    v = np.fromfile(path, dtype=np.float32).reshape(-1, DIMS)
    assert len(v) == n, f"{path}: {len(v)} vectors for {n} texts"
    return v / np.maximum(np.linalg.norm(v, axis=1, keepdims=True), 1e-9)


def with_cosine(questions, full, out):
    """The dumps' inputs with one more column: the question's cosine to each candidate."""
    symbols = keys(questions)
    where = {k: i for i, k in enumerate(symbols)}
    qv = vectors(os.path.join(out, "questions.f32"), len(questions))
    sv = vectors(os.path.join(out, "symbols.f32"), len(symbols))
    x = full["x"]
    cos = np.zeros(x.shape[:2])
    for i, q in enumerate(questions):
        rows = [where[(q["corpus"], c["fqn"], c["path"])] for c in q["rows"]]
        cos[i, :len(rows)] = sv[rows] @ qv[i]
    return dict(full, x=np.concatenate([x, cos[..., None]], axis=2)), cos


def fit(out):
    questions, full = fr.load()
    fr.INPUTS.append("cosine")
    fr.IX["cosine"] = len(fr.INPUTS) - 1
    fr.RERANKED.append("cosine")
    full, cos = with_cosine(questions, full, out)
    data = fr.trim(fr.SHIPPED, full)
    sets = np.array([q["set"] for q in questions])
    corpora = np.array([q["corpus"] for q in questions])
    generation = np.array([q["generation"] for q in questions])
    bm25 = np.array([q["bm25"] for q in questions])
    later = generation == fr.LATEST

    # The cosine alone: does it put an expected symbol above the other candidates?
    valid, hit = full["valid"], full["hit"]
    alone = np.where(valid, cos, -np.inf)
    order = np.argsort(-alone, axis=1, kind="stable")
    ranked = np.take_along_axis(hit, order, axis=1)
    first = np.where(ranked.any(1), ranked.argmax(1) + 1, 0)
    first = np.where(first <= fr.DEPTH, first, 0)

    def coverage(train, s):
        return fr.fit(fr.CURRENT, ["covered"], train, fr.per_file(s))

    def cosine(train, s):
        return fr.fit(coverage(train, s), ["cosine"], train, fr.per_file(s))

    def cosine_and_rest(train, s):
        names = ["cosine", "covered", "public_name"] + [k for k in fr.FITTED
                                                         if k not in fr.NAME_WORDS]
        return fr.fit(cosine(train, s), names, train, fr.per_file(s))

    methods = {"BM25 alone": None, "cosine alone, over the candidates": "alone",
               "coverage alone (shipped)": coverage, "coverage, then cosine alone": cosine,
               "cosine and the rest per file": cosine_and_rest}

    def line(label, p):
        f = fr.figures(p)
        return (f"{label:38s} top-1 {f['top1']:3d}/{f['n']} ({100 * f['top1'] / f['n']:.0f}%)  "
                f"top-5 {f['top5']:3d} ({100 * f['top5'] / f['n']:.0f}%)  MRR@10 {f['mrr']:.3f}")

    def run(title, folds):
        print(f"\n== {title}", flush=True)
        base = None
        for label, make in methods.items():
            held, weights = [], []
            for train, test in folds:
                if make is None:
                    held.append(bm25[test])
                elif make == "alone":
                    held.append(first[test])
                else:
                    w = make(fr.sub(data, train), sets[train])
                    weights.append(w.get("cosine", 0.0))
                    held.append(fr.places(w, fr.sub(data, test)))
            p = np.concatenate(held)
            test = np.concatenate([np.flatnonzero(t) for _, t in folds])
            shown = ""
            if any(weights):
                # Paired with the shipped ranking: questions first only with, only without.
                shown = (f"  (weight {', '.join(f'{v:g}' for v in weights)}; first place "
                         f"+{int(((p == 1) & (base != 1)).sum())} "
                         f"-{int(((p != 1) & (base == 1)).sum())})")
            elif make is coverage:
                base = p
            print("  " + line(label, p) + shown, flush=True)
            for c in ["stdlib", "django", "go"]:
                print("    " + line(c, p[corpora[test] == c]))

    run(f"written before set {fr.LATEST}, tested on it", [(~later, later)])
    run("leave one corpus out, pooled",
        [(corpora != c, corpora == c) for c in ["stdlib", "django", "go"]])


def recall(out):
    """Where the first expected symbol ranks by the cosine over every retrievable symbol, beside
    whether the retriever's candidates hold it at all."""
    questions, full = fr.load()
    qv = vectors(os.path.join(out, "questions.f32"), len(questions))
    symbols = {c: retrievable(c) for c in CORPORA}
    sv = vectors(os.path.join(out, "all.f32"), sum(len(v) for v in symbols.values()))
    start, place = 0, np.zeros(len(questions), int)
    for corpus in CORPORA:
        fqns = np.array([fqn for fqn, _, _ in symbols[corpus]])
        block = sv[start:start + len(fqns)]
        start += len(fqns)
        for i, q in enumerate(questions):
            if q["corpus"] != corpus:
                continue
            scores = block @ qv[i]
            expected = np.isin(fqns, list(q["expected"]))
            if expected.any():
                place[i] = int((scores > scores[expected].max()).sum()) + 1
    held = full["hit"].any(1)
    later = np.array([q["generation"] for q in questions]) == fr.LATEST
    corpora = np.array([q["corpus"] for q in questions])
    print("questions: expected among the candidates | by the cosine over every symbol, in the "
          "first 1 / 5 / 10 / 60 | of those not among the candidates, in the cosine's first 60")
    for label, m in [(f"set {fr.LATEST}", later), ("all spent", np.ones(len(later), bool))]:
        for c in CORPORA + ["all"]:
            k = m & ((corpora == c) if c != "all" else True)
            top = [int((k & (place > 0) & (place <= n)).sum()) for n in (1, 5, 10, 60)]
            found = int((k & ~held & (place > 0) & (place <= 60)).sum())
            print(f"  {label:9s} {c:6s} {int(k.sum()):4d}: {int((k & held).sum()):4d} | "
                  + " / ".join(f"{t:4d}" for t in top)
                  + f" | {found} of {int((k & ~held).sum())}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("step", choices=["texts", "fit", "recall"])
    parser.add_argument("dir", help="where the texts and vectors are")
    parser.add_argument("--quality", default=fr.OUT, help="folder holding dumps/ and the copies")
    args = parser.parse_args()
    fr.OUT = args.quality
    fr.SETS = [s for s in fr.SETS if s[5] <= fr.LATEST]
    {"texts": texts, "fit": fit, "recall": recall}[args.step](args.dir)


if __name__ == "__main__":
    main()
