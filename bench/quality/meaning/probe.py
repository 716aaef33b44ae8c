#!/usr/bin/python3
"""Probe of a meaning signal on a tuning half: top-1, top-5 and MRR@10 of BM25 alone, of the
signal alone (cosine over every symbol) and of BM25 plus w x cosine, per fold.

Usage: probe.py INDEXED_DIR QUESTIONS.tsv ppmi|glove|both|use|use+ppmi [--callees 0|1] [--dims N]
       [--texts DIR]
"use": sentence vectors computed outside (DIR/symbols.bin, DIR/questions.bin: float32 rows of 512,
one per line of DIR/symbols.txt and DIR/questions.txt, which --texts DIR writes).
Only the tuning half (odd-numbered questions) is read: these are tuning figures.
"""
import argparse
import time

import numpy as np

import corpus
import vectors as vec

DEPTH = 10
WEIGHTS = (0.1, 0.2, 0.3, 0.5, 1.0)


def place(ranked_fqns, expected):
    for i, f in enumerate(ranked_fqns[:DEPTH]):
        if f in expected:
            return i + 1
    return 0


def tally(places):
    n = len(places)
    return (sum(p == 1 for p in places), sum(1 <= p <= 5 for p in places),
            sum(1.0 / p for p in places if p) / max(n, 1), n)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("repo")
    ap.add_argument("questions")
    ap.add_argument("signal", choices=("ppmi", "glove", "both", "use", "use+ppmi"))
    ap.add_argument("--texts", default=None)
    ap.add_argument("--dump-only", action="store_true")
    ap.add_argument("--callees", type=int, default=1)
    ap.add_argument("--dims", type=int, default=200)
    ap.add_argument("--doc-weight", type=float, default=0.5)
    a = ap.parse_args()

    db, symbols, callees = corpus.load(a.repo + "/.tamsel/index.db")
    fqn_of = dict(db.execute("SELECT id, fqn FROM symbols"))
    t0 = time.time()
    mats, vecs = [], []
    questions = corpus.read_questions(a.questions)[::2]  # the tuning half
    if a.texts and a.signal != "use" and a.signal != "use+ppmi":
        with open(a.texts + "/symbols.txt", "w") as f:
            for s in symbols:
                f.write(vec.sentence(s) + "\n")
        with open(a.texts + "/questions.txt", "w") as f:
            for text, _ in questions:
                f.write(text + "\n")
        if a.dump_only:
            return
    use_q = None
    if a.signal.startswith("use"):
        m = np.fromfile(a.texts + "/symbols.bin", dtype=np.float32).reshape(-1, 512)
        m /= np.linalg.norm(m, axis=1, keepdims=True) + 1e-9
        mats.append(m)
        use_q = np.fromfile(a.texts + "/questions.bin", dtype=np.float32).reshape(-1, 512)
    if a.signal in ("ppmi", "both", "use+ppmi"):
        v, stats = vec.learn_ppmi(symbols, callees, dims=a.dims, callee_words=bool(a.callees))
        print(f"ppmi: {stats}")
        vecs.append(v)
    if a.signal in ("glove", "both"):
        vecs.append(vec.load_glove(symbols))
    for v in vecs:
        mats.append(vec.symbol_matrix(v, symbols, doc_weight=a.doc_weight))
    build = time.time() - t0
    print(f"symbols {len(symbols)}, vectors built in {build:.1f} s, "
          f"{sum(m.nbytes for m in mats) / 1e6:.1f} MB")

    names = ["bm25", "signal"] + [f"bm25+{w}" for w in WEIGHTS]
    places = {n: [] for n in names}
    spent = []
    for qn, (text, expected) in enumerate(questions):
        bm = corpus.bm25(db, text, 100)
        t1 = time.time()
        cos = np.zeros(len(symbols), dtype=np.float32)
        qvecs = [vec.question_vector(v, text) for v in vecs]
        if use_q is not None:
            qvecs.insert(0, use_q[qn] / (np.linalg.norm(use_q[qn]) + 1e-9))
        for q, m in zip(qvecs, mats):
            cos += m @ q
        cos /= len(mats)
        top = np.argpartition(-cos, 100)[:100]
        top = top[np.argsort(-cos[top])]
        spent.append(time.time() - t1)
        places["bm25"].append(place([fqn_of[i] for i, _ in bm], expected))
        places["signal"].append(place([symbols[i].fqn for i in top], expected))
        row_of = {s.id: n for n, s in enumerate(symbols)}
        best = bm[0][1] if bm else 1.0
        for w in WEIGHTS:
            score = {i: b / best for i, b in bm}
            for i, _ in bm:
                if i in row_of:
                    score[i] += w * float(cos[row_of[i]])
            for r in top:
                sid = symbols[r].id
                if sid not in dict(bm):
                    score[sid] = w * float(cos[r])
            ranked = sorted(score, key=lambda i: -score[i])
            places[f"bm25+{w}"].append(place([fqn_of[i] for i in ranked], expected))
    print(f"per question: signal {1000 * np.median(spent):.2f} ms median "
          f"(question vector + cosine over {len(symbols)} symbols + top 100)")
    print(f"{'':12} {'all (' + str(len(questions)) + ')':>24} {'fold A':>22} {'fold B':>22}")
    for n in names:
        cells = []
        for part in (places[n], places[n][0::2], places[n][1::2]):
            t1, t5, mrr, k = tally(part)
            cells.append(f"{t1:3d} {t5:3d} {mrr:.3f}")
        print(f"{n:12} " + "   ".join(f"{c:>20}" for c in cells))
    print("(cells: top-1, top-5, MRR@10)")


if __name__ == "__main__":
    main()
