#!/usr/bin/python3
"""Tries a rerank input offline, before any code computes it: the input is built here from the
dumps (and the built indexes, read-only), its weight fitted alone with every other weight held as
shipped, and the two checks of fit_rerank.py printed against the shipped weights: the newest spent
set from the older ones, and leave one corpus out. A probe that gains on neither is not worth
writing into the retriever.

Probes:
  wide_head     the fused head widened to the first N (default 400) for candidates two signals
                find (BM25, widened, exact name, paired, the 60 nearest by meaning); no weight
  callees       share of the question's words said by the names a candidate calls
  callers       share of them said by the names of the functions calling it
  same_file     log2(1 + other candidates of the fused first K from its file or Go package) / 5
  head_noun     a name ending on the head of the question's opening noun phrase, rough stems
                (--variant np: no head for yes-or-no questions or after a determiner; long:
                one-word names only for things; python: not for Go)
  head_cxx      the retriever's head_named column from the dumps, off for questions opening
                with a wh- word (--variant wh) or a word WordNet tags mostly as a verb (verb)
  letters       share of a candidate's own name's letters the question's words spell (a word or
                its stem of three letters or more inside the name, or a sub-word of three or more
                beginning a word); --siblings: less the best of its siblings (same owner and home)
                in the fused head; --short N: 0 for names of fewer than N letters
  bm25_rank     the candidate's place in BM25 alone's list (the dump's text share, 1 first):
                --variant log 1 / log2(1 + place), inv 1 / place, top the first only, lead the
                first's share less the second's (how far BM25 alone's top stands out), rrf
                K / (K + place) plus the same of its place by meaning (--top K), meaning that
                half alone
  unsaid        share of a name's words (no digits) the question's words do not begin or extend,
                less the least share among its siblings in the fused head (same owner and home);
                --variant neg: only below the best sibling (a name saying less unsaid gains)

Weights held: those shipped before head_named (fit_rerank.SIBLING_LED); --held headed: those
shipped with it (fit_rerank.HEADED); --held NAME: any weights dict of fit_rerank.py (FAILED).
--refit NAME,... fits those weights beside the probe's.

The question's words here are a rough cut (lower case, a few stop words, common suffixes off),
not the retriever's terms: a probe that gains is then written in C++ and measured again.

Usage: bench/quality/probe_input.py PROBE [--own] [--undocumented] [--top K] [--width N]
                                           [--siblings] [--short N]
  --own           callees/callers: leave out words the candidate's own name says
  --undocumented  callees/callers: only candidates without a docstring
  --variant V     head_noun / head_cxx: comma-separated variants above
"""
import argparse
import math
import os
import re
import sqlite3
import sys
from collections import Counter

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import fit_rerank as fr  # noqa: E402

STOP = set("a an the of to in on for from by with and or is are be was it its this that what "
           "which how when where who why do does can should i my me we you your as at into than "
           "then there their not no yes one two all any each if so but get set".split())
SUFFIXES = ["ations", "ation", "ings", "ing", "ers", "er", "ies", "es", "ed", "s", "ly"]


def stem(word):
    for suffix in SUFFIXES:
        if word.endswith(suffix) and len(word) - len(suffix) >= 3:
            return word[:-len(suffix)]
    return word


def words(text):
    text = re.sub(r"([a-z0-9])([A-Z])", r"\1 \2", text)
    return {stem(w) for w in re.findall(r"[a-z0-9]+", text.lower()) if w not in STOP}


def call_names(corpus, direction):
    """(fqn, path) -> the names it calls (callees) or the names of its callers (callers)."""
    db = sqlite3.connect(f"file:{os.path.join(fr.OUT, corpus, '.tamsel', 'index.db')}?mode=ro",
                         uri=True)
    if direction == "callees":
        rows = db.execute("SELECT s.fqn, f.path, c.target_fqn, c.member FROM call_sites c "
                          "JOIN symbols s ON s.id = c.caller_id JOIN files f ON f.id = s.file_id")
        rows = ((fqn, path, (target.rsplit(".", 1)[-1] if target else member))
                for fqn, path, target, member in rows)
    else:
        rows = db.execute("SELECT t.fqn, f.path, s.name FROM call_sites c "
                          "JOIN symbols s ON s.id = c.caller_id JOIN symbols t ON t.id = c.callee_id "
                          "JOIN files f ON f.id = t.file_id")
    out = {}
    for fqn, path, name in rows:
        if name:
            out.setdefault((fqn, path), set()).add(name)
    return out


def call_column(questions, width, args):
    names = {c: call_names(c, args.probe) for c in ["stdlib", "django", "go"]}
    col = np.zeros((len(questions), width))
    for i, q in enumerate(questions):
        asked = words(q["text"])
        for j, c in enumerate(q["rows"] if asked else []):
            said = names[q["corpus"]].get((c["fqn"], c["path"]))
            if not said or (args.undocumented and c["f"][fr.IX["docstring"]] > 0):
                continue
            spoken = set().union(*(words(n) for n in said))
            if args.own:
                spoken -= words(c["fqn"].rsplit(".", 1)[-1])
            col[i, j] = len(asked & spoken) / len(asked)
    return col


def same_file_column(questions, full, args):
    _, order, _ = fr.fused_order(fr.SHIPPED, full["x"], full["valid"])
    col = np.zeros(full["valid"].shape)
    for i, q in enumerate(questions):
        head = [j for j in order[i, :fr.SHIPPED["depth"]] if full["valid"][i, j]]
        home = [fr.home(q["rows"][j]["path"], q["corpus"]) for j in head]
        counted = Counter(home[:args.top])
        for rank, (j, h) in enumerate(zip(head, home)):
            col[i, j] = math.log2(1 + counted[h] - (rank < args.top)) / 5
    return col


BOUNDARY = set("of for that which who whose with in into on at from to by as when where so than "
               "about before after while without".split())
THINGS = {"class", "struct", "interface", "type"}
ARTICLES = {"a", "an", "the", "all", "each", "every", "some", "any", "its", "their", "one"}


AUXILIARIES = set("is are does do can could has have should was were will may must".split())


def head_word(text, phrase_only=False):
    """The word a question's first noun phrase ends on: the one before the first preposition,
    relative word or participle ("login form of the admin": form)."""
    tokens = re.findall(r"[a-z0-9]+", text.lower())
    if phrase_only and tokens and tokens[0] in AUXILIARIES:
        return None
    head = None
    for k, t in enumerate(tokens):
        if t in BOUNDARY or (k > 0 and head and (t.endswith("ing") or t.endswith("ed"))):
            break
        if t in ARTICLES and k > 0 and phrase_only:
            return None
        if t not in ARTICLES:
            head = t
    return stem(head) if head else None


def name_words(name):
    name = re.sub(r"([a-z0-9])([A-Z])", r"\1 \2", name)
    name = re.sub(r"([A-Z]+)([A-Z][a-z])", r"\1 \2", name)
    return [stem(w) for w in re.findall(r"[a-z0-9]+", name.lower())]


def head_column(questions, width, args):
    col = np.zeros((len(questions), width))
    for i, q in enumerate(questions):
        head = head_word(q["text"], "np" in args.variant)
        if not head:
            continue
        for j, c in enumerate(q["rows"]):
            if "python" in args.variant and q["corpus"] == "go":
                continue
            words_ = name_words(c["fqn"].rsplit(".", 1)[-1])
            if "long" in args.variant and len(words_) < 2 and c["kind"] not in THINGS:
                continue
            if words_ and words_[-1] == head:
                col[i, j] = 1.0
    return col


WH = set("how what why where when which who whose".split())


def verb_first():
    """Words WordNet tags as verbs more often than as nouns (or only as verbs)."""
    counts = {}
    for pos in ["noun", "verb"]:
        with open(f"/usr/share/wordnet/index.{pos}") as f:
            for line in f:
                if line.startswith(" "):
                    continue
                parts = line.split()
                counts.setdefault(parts[0], {})[pos] = int(parts[-int(parts[2]) - 1]) + 1
    return {w for w, c in counts.items() if c.get("verb", 0) > c.get("noun", 0)}


def head_cxx_column(questions, full, args):
    col = full["x"][..., fr.IX["head_named"]].copy()
    verbs = verb_first() if "verb" in args.variant else set()
    for i, q in enumerate(questions):
        words_ = re.findall(r"[a-z0-9]+", q["text"].lower())
        first = words_[0] if words_ else ""
        if ("wh" in args.variant and first in WH) or first in verbs:
            col[i] = 0
def letters_said(name, asked, short):
    low = name.lower()
    total = sum(ch.isalpha() for ch in low)
    if total == 0 or total < short:
        return 0.0
    said = [False] * len(low)
    for w in asked:
        for form in {w, stem(w)}:
            at = low.find(form) if len(form) >= 3 else -1
            while at >= 0:
                said[at:at + len(form)] = [True] * len(form)
                at = low.find(form, at + 1)
    at = 0
    for piece in re.findall(r"[A-Z]?[a-z]+|[A-Z]+(?![a-z])", name):
        start = low.find(piece.lower(), at)
        if start < 0:
            continue
        at = start + len(piece)
        if len(piece) >= 3 and any(w.startswith(piece.lower()) for w in asked):
            said[start:at] = [True] * len(piece)
    return sum(1 for k, ch in enumerate(low) if said[k] and ch.isalpha()) / total


def letters_column(questions, full, args):
    _, order, _ = fr.fused_order(fr.SHIPPED, full["x"], full["valid"])
    col = np.zeros(full["valid"].shape)
    for i, q in enumerate(questions):
        asked = [w for w in re.findall(r"[a-z0-9]+", q["text"].lower()) if w not in STOP]
        said = {j: letters_said(c["fqn"].rsplit(".", 1)[-1], asked, args.short)
                for j, c in enumerate(q["rows"])}
        if not args.siblings:
            for j, v in said.items():
                col[i, j] = v
            continue
        groups = {}
        for j in order[i, :fr.SHIPPED["depth"]]:
            if full["valid"][i, j]:
                c = q["rows"][j]
                key = (c["fqn"].rpartition(".")[0], fr.home(c["path"], q["corpus"]))
                groups.setdefault(key, {})[c["fqn"]] = j
        for members in groups.values():
            for fqn, j in members.items():
                others = [said[k] for f, k in members.items() if f != fqn]
                if others:
                    col[i, j] = said[j] - max(others)
    return col


def bm25_rank_column(full, args):
    """Places by BM25 alone and by meaning among the dump's candidates (0 where not listed)."""
    x, valid = full["x"], full["valid"]
    n, width = valid.shape
    text = np.where(valid, x[..., fr.IX["text"]], 0.0)
    order = np.argsort(-text, axis=1, kind="stable")
    place = np.empty_like(order)
    place[np.arange(n)[:, None], order] = np.arange(width)[None, :] + 1
    listed = text > 0
    by_meaning = x[..., fr.IX["nearest"]]
    k = args.top
    if "rrf" in args.variant or "meaning" in args.variant:
        col = np.where(by_meaning > 0, k / (k + by_meaning), 0.0)
        if "rrf" in args.variant:
            col += np.where(listed, k / (k + place), 0.0)
        return np.where(valid, col, 0.0)
    if "lead" in args.variant:
        ranked = -np.sort(-text, axis=1)
        return np.where(listed & (place == 1), (ranked[:, 0] - ranked[:, 1])[:, None], 0.0)
    if "inv" in args.variant:
        return np.where(listed, 1.0 / place, 0.0)
    if "top" in args.variant:
        return (listed & (place == 1)).astype(float)
    return np.where(listed, 1.0 / np.log2(1 + place), 0.0)


def unsaid_column(questions, full, args):
    _, order, _ = fr.fused_order(fr.SHIPPED, full["x"], full["valid"])
    col = np.zeros(full["valid"].shape)

    def said(w, asked):
        if len(w) < 3:
            return w in asked
        return any(a.startswith(w) or w.startswith(a) for a in asked if len(a) >= 3)
    for i, q in enumerate(questions):
        asked = {stem(w) for w in re.findall(r"[a-z0-9]+", q["text"].lower()) if w not in STOP}
        share, groups = {}, {}
        for j in order[i, :fr.SHIPPED["depth"]]:
            if not full["valid"][i, j]:
                continue
            c = q["rows"][j]
            words_ = [w for w in name_words(c["fqn"].rsplit(".", 1)[-1]) if not w.isdigit()]
            share[j] = sum(not said(w, asked) for w in words_) / max(1, len(words_))
            key = (c["fqn"].rpartition(".")[0], fr.home(c["path"], q["corpus"]))
            groups.setdefault(key, []).append(j)
        for members in groups.values():
            for j in members:
                others = [share[k] for k in members if k != j]
                if others:
                    v = share[j] - min(others)
                    col[i, j] = min(v, 0) if "neg" in args.variant else v
    return col


def widen_head(width):
    """fit_rerank's model_scores with the head widened for candidates two signals find."""
    shipped = fr.model_scores
    x_ = fr.IX

    def model_scores(w, data):
        model, head, pos = shipped(w, data)
        x = data["x"]
        nearest = x[..., x_["nearest"]]
        signals = sum((x[..., x_[k]] > 0).astype(int) for k in ["text", "widened", "named", "paired"])
        signals = signals + ((nearest > 0) & (nearest <= 60))
        return model, head | ((pos < width) & (signals >= 2) & data["valid"]), pos
    return model_scores


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("probe", choices=["wide_head", "callees", "callers", "same_file", "head_noun",
                                          "head_cxx", "letters", "bm25_rank", "unsaid"])
    parser.add_argument("--own", action="store_true")
    parser.add_argument("--undocumented", action="store_true")
    parser.add_argument("--top", type=int, default=100)
    parser.add_argument("--width", type=int, default=400)
    parser.add_argument("--variant", default="")
    parser.add_argument("--siblings", action="store_true")
    parser.add_argument("--short", type=int, default=0)
    parser.add_argument("--held", default="sibling_led")
    parser.add_argument("--refit", default="")
    args = parser.parse_args()
    fr.DEPTHS = fr.DEPTHS + [args.width]
    questions, full = fr.load()
    base = {"headed": fr.HEADED, "sibling_led": fr.SIBLING_LED}.get(args.held) or getattr(fr, args.held)
    refit = [k for k in args.refit.split(",") if k]
    if args.probe == "wide_head":
        fr.model_scores = widen_head(args.width)
        make = None
    else:
        width = full["x"].shape[1]
        col = (same_file_column(questions, full, args) if args.probe == "same_file" else
               head_column(questions, width, args) if args.probe == "head_noun" else
               head_cxx_column(questions, full, args) if args.probe == "head_cxx" else
               letters_column(questions, full, args) if args.probe == "letters" else
               bm25_rank_column(full, args) if args.probe == "bm25_rank" else
               unsaid_column(questions, full, args) if args.probe == "unsaid" else
               call_column(questions, width, args))
        fr.IX["probe"] = len(fr.INPUTS)
        fr.INPUTS.append("probe")
        fr.RERANKED.append("probe")
        full["x"] = np.concatenate([full["x"], col[..., None]], axis=2)
        make = True
    data = fr.trim(fr.SHIPPED, full)
    sets = np.array([q["set"] for q in questions])
    corpora = np.array([q["corpus"] for q in questions])
    generation = np.array([q["generation"] for q in questions])
    for title, folds in [(f"set {fr.LATEST} from the older sets",
                          [(generation < fr.LATEST, generation == fr.LATEST)]),
                         ("leave one corpus out", [(corpora != c, corpora == c)
                                                   for c in ["stdlib", "django", "go"]])]:
        tried, shipped, tests = [], [], []
        for train, test in folds:
            w = base
            if make:
                w = fr.fit(base, ["probe"] + refit, fr.sub(data, train),
                           fr.per_file(sets[train]))
                held = "".join(f" {k} {w.get(k, 0)}" for k in refit)
                print(f"  weight {w.get('probe', 0)}{held}", end="")
            tried.append(fr.places(w, fr.sub(data, test)))
            shipped.append(fr.places(base, fr.sub(data, test)))
            tests.append(np.flatnonzero(test))
        print(f"\n== {title}: probe against shipped, top-1 / top-5 / MRR@10")
        p, b, t = np.concatenate(tried), np.concatenate(shipped), np.concatenate(tests)
        for corpus in ["stdlib", "django", "go", None]:
            m = corpora[t] == corpus if corpus else np.ones(len(t), bool)
            f, g = fr.figures(p[m]), fr.figures(b[m])
            print(f"  {corpus or 'all':7s} {f['top1']:4d} / {f['top5']:4d} / {f['mrr']:.3f}   "
                  f"against {g['top1']:4d} / {g['top5']:4d} / {g['mrr']:.3f}")


if __name__ == "__main__":
    main()
