#!/usr/bin/python3
"""Fits the question route's rerank weights on the question sets and checks them held out.

Reads, per question, every fused candidate with the rerank's inputs (tamsel_quality --dump, run
here for each set; cached under bench/out/quality/dumps), replays the retriever's ranking offline
and compares, on the same held-out folds, BM25 alone, the fused score alone, the weights fitted
before, and weights fitted by coordinate ascent on MRR@10 with the action preference on every
class of a how-question (broad) or only on a class whose function in the head names more of it
(narrow), and variants of the latter.

Usage: bench/quality/fit_rerank.py [--build DIR] [--redump] [--only METHOD,...]
Prints the figures of every fold and, last, the weights fitted on all questions.
"""
import argparse
import json
import os
import subprocess
import sys

import numpy as np

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
Q = os.path.join(ROOT, "bench", "quality")
OUT = os.path.join(ROOT, "bench", "out", "quality")

# (set, corpus, index copy, file, tuning or spent, written after the weights of 2026-11-27 were
# fitted). Only files read and spent are here; a set still untouched is never dumped.
SETS = [
    ("stdlib", "stdlib", "stdlib", "questions.tsv", "tuning", False),
    ("stdlib_r4", "stdlib", "stdlib", "questions_round4.tsv", "tuning", False),
    ("stdlib_u1", "stdlib", "stdlib", "questions_untouched_stdlib.tsv", "spent", False),
    ("stdlib_u2", "stdlib", "stdlib", "questions_untouched2_stdlib.tsv", "spent", False),
    ("django", "django", "django", "questions_django.tsv", "tuning", False),
    ("django_r4", "django", "django", "questions_django_round4.tsv", "tuning", False),
    ("django_u1", "django", "django", "questions_untouched_django.tsv", "spent", False),
    ("django_u2", "django", "django", "questions_untouched2_django.tsv", "spent", False),
    ("go", "go", "go", "questions_go.tsv", "tuning", False),
    ("go_u1", "go", "go", "questions_untouched_go.tsv", "spent", False),
    ("go_u2", "go", "go", "questions_untouched2_go.tsv", "spent", False),
    ("stdlib_u3", "stdlib", "stdlib", "questions_untouched3_stdlib.tsv", "spent", True),
    ("django_u3", "django", "django", "questions_untouched3_django.tsv", "spent", True),
    ("go_u3", "go", "go", "questions_untouched3_go.tsv", "spent", True),
]

# The inputs in the order tamsel_quality --dump writes them.
INPUTS = ["text", "widened", "named", "meaning", "in_name", "whole", "in_path", "docstring",
          "callers", "function", "test", "thing", "exported", "senses", "spelled", "paired",
          "own_name", "holder"]
IX = {name: i for i, name in enumerate(INPUTS)}

RERANKED = ["in_name", "whole", "in_path", "docstring", "callers", "function", "thing",
            "exported", "meaning", "senses"]
DEPTH = 10  # MRR@10, top-1, top-5 as tamsel_quality counts them


def dump(build, redump):
    """Runs tamsel_quality --dump for every set whose dump is missing or older than the binary."""
    binary = os.path.join(ROOT, build, "tamsel_quality")
    os.makedirs(os.path.join(OUT, "dumps"), exist_ok=True)
    for name, _, copy, tsv, *_ in SETS:
        path = os.path.join(OUT, "dumps", name + ".jsonl")
        stale = not os.path.exists(path) or os.path.getmtime(path) < os.path.getmtime(binary)
        if redump or stale:
            print("dumping", name, file=sys.stderr)
            subprocess.run([binary, os.path.join(OUT, copy), os.path.join(Q, tsv), "--dump", path],
                           check=True, stdout=subprocess.DEVNULL)


def home(path, corpus):
    """Where a definition lives for telling answers apart: a Go package is its folder."""
    return os.path.dirname(path) if corpus == "go" else path


def load():
    """Every question as padded arrays in a dict: inputs x [Q, C, F], valid and expected (hit)
    masks, and the pairs (pj, pk) of a thing and a function it holds (pown: the function's own
    name meets the question); plus the questions themselves."""
    questions = []
    for name, corpus, _, _, kind, later in SETS:
        with open(os.path.join(OUT, "dumps", name + ".jsonl")) as f:
            for line in f:
                q = json.loads(line)
                # A name defined more than once in one file or package is one answer: the first
                # in fused order stands for it.
                seen, rows = set(), []
                for c in q["candidates"]:
                    key = (c["fqn"], home(c["path"], corpus))
                    if key not in seen:
                        seen.add(key)
                        rows.append(c)
                questions.append({"set": name, "corpus": corpus, "kind": kind, "later": later,
                                  "rows": rows, "text": q["question"],
                                  "expected": set(q["expected"]), "bm25": q["bm25"]})
    width = max(len(q["rows"]) for q in questions)
    n = len(questions)
    x = np.zeros((n, width, len(INPUTS)))
    valid = np.zeros((n, width), bool)
    hit = np.zeros((n, width), bool)
    pairs = []
    for i, q in enumerate(questions):
        by_fqn = {}
        for j, c in enumerate(q["rows"]):
            x[i, j] = c["f"]
            valid[i, j] = True
            hit[i, j] = c["fqn"] in q["expected"]
            by_fqn.setdefault(c["fqn"], []).append(j)
        found = []
        for k, c in enumerate(q["rows"]):
            if c["kind"] in THINGS:
                continue
            parts = c["fqn"].split(".")
            for cut in range(1, len(parts)):
                for j in by_fqn.get(".".join(parts[:cut]), []):
                    holder = q["rows"][j]
                    if (holder["kind"] in THINGS and
                            home(holder["path"], q["corpus"]) == home(c["path"], q["corpus"])):
                        f, g = c["f"], holder["f"]
                        # How the function's name says the question: any of its words, more of
                        # them than its holder's own name, or some the holder's whole name lacks.
                        found.append((j, k, (f[IX["own_name"]] > 0,
                                             f[IX["own_name"]] > g[IX["own_name"]] + 1e-9,
                                             f[IX["in_name"]] > g[IX["in_name"]] + 1e-9)))
        pairs.append(found)
    most = max(1, max(len(f) for f in pairs))
    pj = np.zeros((n, most), int)
    pk = np.zeros((n, most), int)
    pown = np.zeros((n, most, 3), bool)
    pvalid = np.zeros((n, most), bool)
    for i, found in enumerate(pairs):
        for m, (j, k, own) in enumerate(found):
            pj[i, m], pk[i, m], pown[i, m], pvalid[i, m] = j, k, own, True
    data = {"x": x, "valid": valid, "hit": hit, "pj": pj, "pk": pk, "pown": pown,
            "pvalid": pvalid}
    return questions, data


THINGS = {"class", "struct", "interface", "type", "enum", "trait", "union", "record", "object"}


def sub(data, mask):
    return {k: v[mask] for k, v in data.items()}


def fused_order(w, x, valid):
    """The fused scores under w's fusion (-inf where no candidate), their order and each
    candidate's place in it."""
    paired = w["fuse_paired"] * x[..., IX["paired"]]
    fused = (np.maximum(np.maximum(x[..., IX["text"]], w["fuse_widened"] * x[..., IX["widened"]]),
                        paired)
             + w["fuse_named"] * x[..., IX["named"]]
             + w["fuse_meaning"] * np.maximum(0.0, x[..., IX["meaning"]]))
    fused = np.where(valid, fused, -np.inf)
    n, width = fused.shape
    # Stable: the dump lists ties in the retriever's order.
    order = np.argsort(-fused, axis=1, kind="stable")
    pos = np.empty_like(order)
    pos[np.arange(n)[:, None], order] = np.arange(width)[None, :]
    return fused, order, pos


def holders(w, data, head):
    """Things in the head holding a function in the head, for a how-question (the dump's `thing`):
    any function (w's holder_named 0), one whose own name meets the question (1), more of it than
    the thing's own name (2), or words of it the thing's name lacks (3)."""
    x = data["x"]
    n = x.shape[0]
    member = np.take_along_axis(head, data["pk"], axis=1) & data["pvalid"]
    if w.get("holder_named", 1):
        member &= data["pown"][..., w.get("holder_named", 1) - 1]
    out = np.zeros(head.shape, bool)
    rows = np.broadcast_to(np.arange(n)[:, None], member.shape)
    out[rows[member], data["pj"][member]] = True
    return out & head & (x[..., IX["thing"]] > 0)


def model_scores(w, data):
    """The rerank's scores of the head and the fused order under weights w."""
    x, valid = data["x"], data["valid"]
    fused, order, pos = fused_order(w, x, valid)
    n = fused.shape[0]
    depth = int(w["depth"])
    head = (pos < depth) & valid
    sorted_fused = np.take_along_axis(fused, order, axis=1)
    top = sorted_fused[:, 0]
    last = np.minimum(depth, valid.sum(1)) - 1
    bottom = sorted_fused[np.arange(n), np.maximum(last, 0)]
    spread = np.where(top > bottom, top - bottom, 1.0)
    if w.get("by_place", 0) == 1:
        # The head's places instead of its scores: 1 for the first down to 0 for the last.
        model = 1.0 - pos / np.maximum(last, 1)[:, None]
    elif w.get("by_place", 0) == 2:
        # The fused score against the first's: the gaps as fusion made them.
        model = fused / np.where(top > 0, top, 1.0)[:, None]
    elif w.get("by_place", 0) == 3:
        # Spread over the first ten only, the rest of the head below 0.
        low = sorted_fused[np.arange(n), np.minimum(9, np.maximum(last, 0))]
        model = (fused - low[:, None]) / np.where(top > low, top - low, 1.0)[:, None]
    else:
        model = (fused - bottom[:, None]) / spread[:, None]
    for name in RERANKED + ["test", "spelled"]:
        if w.get(name, 0):
            value = x[..., IX[name]]
            if name == "callers" and w.get("callers_cap"):
                value = np.minimum(value, w["callers_cap"])
            model = model + w[name] * value
    if w.get("holder", 0):
        model = model + w["holder"] * holders(w, data, head)
    return model, head, pos


def places(w, data):
    """The place of the first expected answer (0: not in the first DEPTH) under weights w."""
    model, head, pos = model_scores(w, data)
    valid, hit = data["valid"], data["hit"]
    # The head by the model, then the rest in fused order; ties keep the fused order.
    score = np.where(head, 1e6 + model, -pos.astype(float))
    score = np.where(valid, score, -np.inf)
    rank_order = np.lexsort((pos, -score))
    ranked_hit = np.take_along_axis(hit, rank_order, axis=1)
    first = np.where(ranked_hit.any(1), ranked_hit.argmax(1) + 1, 0)
    return np.where(first <= DEPTH, first, 0)


def figures(p):
    n = len(p)
    return {"n": n, "top1": int((p == 1).sum()), "top5": int(((p >= 1) & (p <= 5)).sum()),
            "mrr": float(np.where(p > 0, 1.0 / np.maximum(p, 1), 0).mean()) if n else 0.0}


def mrr(p):
    return float(np.where(p > 0, 1.0 / np.maximum(p, 1), 0).mean())


GRID = [-1.0, -0.6, -0.4, -0.2, -0.1, -0.05, 0.0, 0.05, 0.1, 0.2, 0.3, 0.4, 0.6, 0.8, 1.0, 1.5]
FUSE_GRID = [0.0, 0.1, 0.25, 0.5, 0.8, 1.0, 1.5, 2.0]
DEPTHS = [10, 20, 30, 60, 100, 200]


def fit(start, names, data, passes=2):
    """Coordinate ascent on MRR@10: each weight in turn set to the best value of its grid, a few
    passes; a change must gain, so ties keep the value already held."""
    w = dict(start)
    best = mrr(places(w, data))
    for _ in range(passes):
        moved = False
        for name in names:
            grid = DEPTHS if name == "depth" else FUSE_GRID if name.startswith("fuse_") else GRID
            for v in grid:
                trial = dict(w, **{name: v})
                score = mrr(places(trial, data))
                if score > best + 1e-9:
                    best, w, moved = score, trial, True
        if not moved:
            break
    return w


def head_inputs(w, data, columns):
    """The fused score spread over the head (0..1) as the first column beside the reranked
    features (holder: the narrow action preference), and which candidates are in the head,
    under w's fusion and depth."""
    x, valid = data["x"], data["valid"]
    fused, _, pos = fused_order(w, x, valid)
    head = (pos < int(w["depth"])) & valid
    top = np.where(head, fused, -np.inf).max(1)
    bottom = np.where(head, fused, np.inf).min(1)
    spread = np.where(top > bottom, top - bottom, 1.0)
    spread_fused = np.where(head, (fused - bottom[:, None]) / spread[:, None], 0.0)
    cols = [spread_fused] + [holders(w, data, head).astype(float) if name == "holder"
                             else x[..., IX[name]] for name in columns]
    return np.stack(cols, axis=-1), head


def fit_pairwise(start, columns, data, l2=0.01):
    """The rerank's weights by a pairwise logistic loss: every expected answer in the head
    against every other candidate in it, each question weighing the same, with an L2 penalty;
    scaled so that the fused score keeps weight 1. Fusion and depth stay as in `start`."""
    from scipy.optimize import minimize
    feats, head = head_inputs(start, data, columns)
    hit = data["hit"]
    diffs, weights = [], []
    for i in range(len(feats)):
        good = np.flatnonzero(head[i] & hit[i])
        bad = np.flatnonzero(head[i] & ~hit[i])
        if len(good) == 0 or len(bad) == 0:
            continue
        d = (feats[i, good][:, None, :] - feats[i, bad][None, :, :]).reshape(-1, feats.shape[-1])
        diffs.append(d)
        weights.append(np.full(len(d), 1.0 / len(d)))
    d, pw = np.concatenate(diffs), np.concatenate(weights)
    nq = len(diffs)

    def loss(v):
        m = d @ v
        value = (pw * np.logaddexp(0, -m)).sum() / nq + l2 * (v[1:] @ v[1:])
        g = -(pw / (1 + np.exp(m))) @ d / nq
        g[1:] += 2 * l2 * v[1:]
        return value, g

    v0 = np.array([1.0] + [start.get(name, 0.0) for name in columns])
    v = minimize(loss, v0, jac=True, method="L-BFGS-B").x
    scale = v[0] if v[0] > 0 else 1.0
    return dict(start, **{name: float(v[k + 1] / scale) for k, name in enumerate(columns)})


# The weights fitted on 2026-11-27 from the 426 questions written before the third untouched set
# (retrieval.cpp until the narrower action preference): the action preference hits every thing
# listed for a how-question (`thing`).
SHIPPED = {
    "fuse_widened": 0.25, "fuse_named": 1.0, "fuse_meaning": 1.0, "fuse_paired": 0.25,
    "in_name": 0.4, "whole": 0.0, "in_path": 0.2, "docstring": 0.3, "callers": 0.1,
    "function": 0.05, "test": 0.0, "thing": -0.6, "exported": 0.4, "meaning": 0.8,
    "senses": 0.1, "spelled": 1.0, "depth": 60, "holder": 0.0, "holder_named": 1,
}
# The narrower preference: a thing loses only to a function it holds that is in the head and
# names words of the question the thing's name lacks (holder_named 3, as retrieval.cpp does).
NARROW = dict(SHIPPED, thing=0.0, holder=-0.6, holder_named=3)


def fused_only():
    return dict(SHIPPED, **{k: 0.0 for k in RERANKED + ["holder"]})


# The exact-name boost stays at 1 (see README: the sets barely spell names, so the fit cannot
# weigh it, and bench/answers needs a spelled name first).
# The pair search's weight (fuse_paired) stays as chosen with it, on the tuning files.
FUSION = ["fuse_widened", "fuse_meaning"]
BROAD_NAMES = FUSION + RERANKED + ["depth"]
NARROW_COLUMNS = [k for k in RERANKED if k != "thing"] + ["holder"]
NARROW_NAMES = FUSION + NARROW_COLUMNS + ["depth"]
BOTH_NAMES = FUSION + RERANKED + ["holder", "depth"]


def methods(train):
    """The methods compared, each a function of the training questions giving weights."""
    return {
        "BM25 alone": None,
        "fused, no rerank": lambda: fused_only(),
        "weights of 2026-11-27": lambda: dict(SHIPPED),
        "broad, fitted": lambda: fit(SHIPPED, BROAD_NAMES, train),
        "narrow, fitted": lambda: fit(NARROW, NARROW_NAMES, train),
        "narrow, any function": lambda: fit(dict(NARROW, holder_named=0), NARROW_NAMES, train),
        "narrow, own name meets": lambda: fit(dict(NARROW, holder_named=1), NARROW_NAMES, train),
        "narrow, own name says more": lambda: fit(dict(NARROW, holder_named=2), NARROW_NAMES,
                                                  train),
        "broad + narrow, fitted": lambda: fit(NARROW, BOTH_NAMES, train),
        "narrow, by place": lambda: fit(dict(NARROW, by_place=1), NARROW_NAMES, train),
        "narrow, share of the first": lambda: fit(dict(NARROW, by_place=2), NARROW_NAMES, train),
        "narrow, spread over ten": lambda: fit(dict(NARROW, by_place=3), NARROW_NAMES, train),
        "narrow, callers capped at 2": lambda: fit(dict(NARROW, callers_cap=2), NARROW_NAMES,
                                                   train),
        "narrow, pairwise": lambda: fit_pairwise(NARROW, NARROW_COLUMNS, train),
    }


# What a plain run compares (each fit takes about half a minute per fold).
DEFAULT = ["fused, no rerank", "weights of 2026-11-27", "broad, fitted", "narrow, fitted"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.environ.get("TAMSEL_BUILD", "build"))
    parser.add_argument("--redump", action="store_true")
    parser.add_argument("--only", help="comma-separated methods to compare (default: "
                        + ", ".join(DEFAULT) + "; the others are variants tried)")
    args = parser.parse_args()
    dump(args.build, args.redump)
    questions, data = load()
    x, valid, hit = data["x"], data["valid"], data["hit"]
    sets = np.array([q["set"] for q in questions])
    corpora = np.array([q["corpus"] for q in questions])
    later = np.array([q["later"] for q in questions])
    bm25 = np.array([q["bm25"] for q in questions])
    chosen = args.only.split(",") if args.only else DEFAULT
    # What no weight can fix: questions whose expected symbol is not a candidate.
    _, head = head_inputs(SHIPPED, data, [])
    for name, m in [("written before set 3", ~later), ("set 3", later)]:
        print(f"{name}, {int(m.sum())} questions: expected among all candidates "
              f"{int(hit[m].any(1).sum())}, among the first {SHIPPED['depth']} by the fusion "
              f"{int((hit[m] & head[m]).any(1).sum())}")

    folds = [("written before set 3 -> set 3", ~later, later)]
    for c in ["stdlib", "django", "go"]:
        folds.append((f"leave {c} out", corpora != c, corpora == c))
    set_folds = [(s, sets != s, sets == s) for s, *_ in SETS]

    def run(title, fold_list, by_corpus=False):
        print(f"\n== {title}", flush=True)
        pooled = {}
        for name, train_mask, test_mask in fold_list:
            train, test = sub(data, train_mask), sub(data, test_mask)
            for method, make in methods(train).items():
                if chosen and method not in chosen and make is not None:
                    continue
                p = bm25[test_mask] if make is None else places(make(), test)
                pooled.setdefault(method, []).append(p)
                if len(fold_list) <= 4:
                    f = figures(p)
                    print(f"  {name:32s} {method:28s} top-1 {f['top1']:3d}/{f['n']} "
                          f"({100 * f['top1'] / f['n']:.0f}%)  top-5 {f['top5']:3d} "
                          f"({100 * f['top5'] / f['n']:.0f}%)  MRR@10 {f['mrr']:.3f}", flush=True)
                if by_corpus:
                    for c in ["stdlib", "django", "go"]:
                        f = figures(p[corpora[test_mask] == c])
                        print(f"  {'':32s}   {c:26s} top-1 {f['top1']:3d}/{f['n']}  "
                              f"top-5 {f['top5']:3d}  MRR@10 {f['mrr']:.3f}")
        if len(fold_list) > 1:
            print("  pooled over the folds' held-out questions:")
            for method, ps in pooled.items():
                f = figures(np.concatenate(ps))
                print(f"    {method:28s} top-1 {f['top1']:3d}/{f['n']} "
                      f"({100 * f['top1'] / f['n']:.0f}%)  top-5 {f['top5']:3d} "
                      f"({100 * f['top5'] / f['n']:.0f}%)  MRR@10 {f['mrr']:.3f}", flush=True)

    # The replay should give what the retriever gives: the shipped weights on every set.
    print("\n== replay check, shipped weights, all questions (compare: tamsel_quality totals)")
    for s, *_ in SETS:
        m = sets == s
        f = figures(places(SHIPPED, sub(data, m)))
        fb = figures(bm25[m])
        print(f"  {s:10s} n {f['n']:3d}  hybrid top-1 {f['top1']:3d} top-5 {f['top5']:3d} "
              f"MRR {f['mrr']:.3f}   BM25 top-1 {fb['top1']:3d} top-5 {fb['top5']:3d}")
    run("written before the third set, tested on it", folds[:1], by_corpus=True)
    run("leave one corpus out", folds[1:])
    run(f"leave one file out ({len(set_folds)} folds)", set_folds)
    final = fit(NARROW, NARROW_NAMES, data)
    print("\n== fitted on all questions")
    print("  narrow:", json.dumps({k: final[k] for k in NARROW_NAMES + ["fuse_named"]}))
    # In-sample, not a measure of quality: what tamsel_quality should print once retrieval.cpp
    # holds these weights.
    print("  per set with the weights fitted on all questions (in-sample; compare tamsel_quality):")
    for s, *_ in SETS:
        m = sets == s
        f = figures(places(final, sub(data, m)))
        print(f"    {s:10s} n {f['n']:3d}  top-1 {f['top1']:3d} top-5 {f['top5']:3d} "
              f"MRR {f['mrr']:.3f}")
    print(f"\nreproduce: TAMSEL_BUILD={args.build} bench/quality/fit_rerank.py")


if __name__ == "__main__":
    main()
