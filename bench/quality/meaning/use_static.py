#!/usr/bin/python3
"""The sentence model distilled into a word table: each word embedded alone, a text's vector
composed from its words' vectors, the cosine fitted as use_rerank does.

Prototype outside the product. DIR holds use_rerank's texts (questions.txt, symbols.txt); the
word list and the composed vectors go to OUT:

  use_static.py words DIR OUT          distinct words of the texts and WordNet's lemmas -> OUT
  (node use_embed.js OUT/words.txt OUT/words.f32)
  use_static.py compose DIR OUT [--quality Q]
                                       a text's vector from its words', per table and way of
                                       composing: OUT/TABLE-WAY/{questions,symbols}.f32
  (use_rerank.py fit OUT/TABLE-WAY --quality Q)
  use_static.py fit OUT/TABLE-WAY --quality Q
                                       the same with fit_rerank's grid widened to 4, 6 and 8
                                       (for every weight fitted, coverage's too)

A text's words: its letter runs; a run that is a code name (snake_case, camelCase) is split into
its sub-words; all lower-cased. A word's vector is the model's vector of the word alone, packed to
one signed byte a dimension as a table would hold it; a word the table lacks is looked up by its
WordNet base form (exceptions, then the detachment rules), else dropped. Tables: "all" (every
word of the questions and candidates and WordNet's), "code" (the candidates' words and
WordNet's: what the questions miss is dropped), "wordnet" (WordNet's tagged lemmas alone),
"lemmas" (every WordNet lemma), with --quality "others" (for each corpus, tagged WordNet and
the other corpora's candidate words: a table that has not seen the repository). Ways: "mean",
and "idf" (weighted by log((N + 1) / (df + 1)) over the candidate texts).
"""
import argparse
import collections
import os
import re
import sys

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import use_rerank  # noqa: E402
from use_rerank import fr  # noqa: E402

DIMS = 512
WORDNET = "/usr/share/wordnet/cntlist.rev"
_runs = re.compile(r"[A-Za-z][A-Za-z0-9_]*")
_parts = re.compile(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+")
_plain = re.compile(r"[A-Z]?[a-z]+|[A-Z]+")


def tokens(text):
    """(word, whether it is a sub-word of a code name) for each word of the text, in order."""
    out = []
    for run in _runs.findall(text):
        if _plain.fullmatch(run):
            out.append((run.lower(), False))
        else:
            out.extend((p.lower(), True) for p in _parts.findall(run))
    return out


def lines(path):
    with open(path) as f:
        return [line.rstrip("\n") for line in f]


def wordnet():
    """WordNet's single-word lemmas with a tagged sense, by how often they were tagged."""
    count = collections.Counter()
    with open(WORDNET) as f:
        for line in f:
            key, _, n = line.split()
            lemma = key.split("%")[0]
            if re.fullmatch("[a-z]+", lemma):
                count[lemma] += int(n)
    return [w for w, _ in count.most_common()]


# WordNet's detachment rules: how an inflected word is cut back to a lemma it may have.
_RULES = [("ies", "y"), ("ches", "ch"), ("shes", "sh"), ("ses", "s"), ("xes", "x"), ("zes", "z"),
          ("es", "e"), ("es", ""), ("s", ""), ("ing", "e"), ("ing", ""), ("ed", "e"), ("ed", ""),
          ("est", "e"), ("est", ""), ("er", "e"), ("er", "")]


def exceptions():
    """WordNet's irregular forms (ran -> run, children -> child)."""
    base = {}
    for part in ["noun", "verb", "adj", "adv"]:
        with open(f"/usr/share/wordnet/{part}.exc") as f:
            for line in f:
                form, lemma = line.split()[:2]
                base.setdefault(form, lemma)
    return base


def lookup(known, irregular):
    """The table's word for a text's word: itself, else its WordNet base form, else None."""
    def find(w):
        if w in known:
            return w
        if irregular.get(w) in known:
            return irregular[w]
        for end, put in _RULES:
            if w.endswith(end) and len(w) > len(end) + 1 and w[:-len(end)] + put in known:
                return w[:-len(end)] + put
        return None
    return find


def lemmas():
    """Every single-word lemma of WordNet, tagged or not."""
    every = set()
    for part in ["noun", "verb", "adj", "adv"]:
        with open(f"/usr/share/wordnet/index.{part}") as f:
            every.update(w for w in (line.split(" ", 1)[0] for line in f if line[0] != " ")
                         if re.fullmatch("[a-z]+", w))
    return sorted(every)


def words(src, out):
    os.makedirs(out, exist_ok=True)
    seen = {}
    for name in ["questions", "symbols"]:
        plain, sub = set(), set()
        for text in lines(os.path.join(src, name + ".txt")):
            for w, is_sub in tokens(text):
                (sub if is_sub else plain).add(w)
        seen[name] = (plain, sub)
        print(f"{name}: {len(plain)} words, {len(sub)} sub-words of code names "
              f"({len(sub - plain)} not also a word), {len(plain | sub)} distinct")
    tagged, untagged = wordnet(), lemmas()
    every = set(untagged).union(tagged, *seen["questions"], *seen["symbols"])
    with open(os.path.join(out, "words.txt"), "w") as f:
        for w in sorted(every):
            f.write(w + "\n")
    with open(os.path.join(out, "wordnet.txt"), "w") as f:
        f.write("\n".join(tagged) + "\n")
    with open(os.path.join(out, "lemmas.txt"), "w") as f:
        f.write("\n".join(untagged) + "\n")
    print(f"WordNet: {len(tagged)} tagged lemmas, {len(untagged)} in all; table of every word: "
          f"{len(every)} -> {out}")


def packed(out):
    """The word vectors as a table would hold them: unit length, 8 bits a dimension."""
    vocab = lines(os.path.join(out, "words.txt"))
    v = np.fromfile(os.path.join(out, "words.f32"), dtype=np.float32).reshape(-1, DIMS)
    assert len(v) == len(vocab), f"{len(v)} vectors for {len(vocab)} words"
    v = v / np.maximum(np.linalg.norm(v, axis=1, keepdims=True), 1e-9)
    q = np.clip(np.rint(v * 127), -127, 127).astype(np.int8)
    return {w: i for i, w in enumerate(vocab)}, q.astype(np.float32) / 127


def corpora(quality):
    """The corpus of each question and candidate text, in the order use_rerank wrote them."""
    fr.OUT = quality
    fr.SETS = [s for s in fr.SETS if s[5] <= fr.LATEST]
    questions, _ = fr.load()
    return {"questions": [q["corpus"] for q in questions],
            "symbols": [c for c, _, _ in use_rerank.keys(questions)]}


def compose(src, out, quality=None):
    where, table = packed(out)
    texts = {n: [tokens(t) for t in lines(os.path.join(src, n + ".txt"))]
             for n in ["questions", "symbols"]}
    df = collections.Counter(w for t in texts["symbols"] for w in {w for w, _ in t})
    n = len(texts["symbols"])
    tagged = set(lines(os.path.join(out, "wordnet.txt")))
    every = set(lines(os.path.join(out, "lemmas.txt")))
    tables = {"all": set(where), "code": set(df) | tagged, "wordnet": tagged, "lemmas": every}
    tables = {label: collections.defaultdict(lambda k=known: k) for label, known in tables.items()}
    of = {name: [None] * len(ts) for name, ts in texts.items()}
    if quality:
        # A table made before the repository is seen: tagged WordNet and the other corpora's words.
        of = corpora(quality)
        own = collections.defaultdict(set)
        for c, t in zip(of["symbols"], texts["symbols"]):
            own[c].update(w for w, _ in t)
        tables["others"] = {c: tagged.union(*(v for d, v in own.items() if d != c)) for c in own}
    irregular = exceptions()
    for label, known in tables.items():
        finds = {c: lookup(known[c], irregular) for c in set(of["symbols"])}
        found = collections.Counter(f for c, t in zip(of["symbols"], texts["symbols"])
                                    for f in {finds[c](w) for w, _ in t})
        sizes = sorted({len(known[c]) for c in finds})
        print(f"table {label}: {'/'.join(map(str, sizes))} words "
              f"({max(sizes) * DIMS / 2**20:.1f} MiB at 8 bits)")
        for name, ts in texts.items():
            uses = collections.Counter((c, w) for c, t in zip(of[name], ts) for w, _ in t)
            missed = {(c, w) for c, w in uses if finds[c](w) is None}
            exact = sum(k for (c, w), k in uses.items() if w in known[c])
            empty = sum(not any(finds[c](w) for w, _ in t) for c, t in zip(of[name], ts))
            total = sum(uses.values())
            gone = collections.Counter()
            for c, w in missed:
                gone[w] += uses[(c, w)]
            print(f"  {name}: words missed {100 * sum(gone.values()) / total:.1f}% of "
                  f"uses ({100 * (1 - exact / total):.1f}% without base forms), "
                  f"{len(gone)} of {len({w for _, w in uses})} distinct; texts with no known word "
                  f"{empty}; e.g. " + ", ".join(w for w, _ in gone.most_common(12)))
        for way in ["mean", "idf"]:
            folder = os.path.join(out, f"{label}-{way}")
            os.makedirs(folder, exist_ok=True)
            for name, ts in texts.items():
                vec = np.zeros((len(ts), DIMS), np.float32)
                for i, (c, t) in enumerate(zip(of[name], ts)):
                    ws = [finds[c](w) for w, _ in t if finds[c](w)]
                    if not ws:
                        continue
                    weight = np.ones(len(ws)) if way == "mean" else np.array(
                        [np.log((n + 1) / (found[w] + 1)) for w in ws])
                    vec[i] = weight @ table[[where[w] for w in ws]]
                vec.tofile(os.path.join(folder, name + ".f32"))


def main():
    if sys.argv[1:2] == ["fit"]:
        # The idf-weighted cosines' weight sits at the grid's top (3).
        fr.GRID += [4.0, 6.0, 8.0]
        return use_rerank.main()
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("step", choices=["words", "compose"])
    parser.add_argument("src", help="where use_rerank wrote the texts")
    parser.add_argument("out", help="where the words and composed vectors go")
    parser.add_argument("--quality", help="folder holding dumps/ (compose: adds the table "
                        "\"others\", which needs each text's corpus)")
    args = parser.parse_args()
    if args.step == "words":
        words(args.src, args.out)
    else:
        compose(args.src, args.out, args.quality)


if __name__ == "__main__":
    main()
