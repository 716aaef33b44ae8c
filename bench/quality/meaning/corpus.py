"""What a prototype of a meaning signal reads from an index: symbols, their words, questions.

Prototype only (numpy, scipy, snowballstemmer from Debian); the product is C++.
"""
import re
import sqlite3

import snowballstemmer

RETRIEVABLE = ("class", "function", "method", "interface", "struct", "enum", "trait", "type",
               "constructor", "macro", "namespace", "union", "record", "object")

# The query words the retriever drops, plus English function words common in docstrings.
STOP = set("""a about all an and any are as at be been being but by can could do does did done for
from get gets got has have having how i if in into is it its me my of on or our should so some that
the their them then there these this those to use used uses using was we were what when where which
while who whom why will with would you your find show tell explain happens work works code
implemented implement defined define handled handle handles called call calls way ways place places
not no one also may must than other only more such each own same both just very return returns
self none true false cls args kwargs""".split())

_stem = snowballstemmer.stemmer("english")
_word = re.compile(r"[A-Za-z][A-Za-z0-9_]*")
_sub = re.compile(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|[0-9]+")


def words(text, limit=None, stem=True):
    """Lower-cased sub-words of a text, stemmed unless told, stop words dropped (code names
    split)."""
    out = []
    for w in _word.findall(text or ""):
        for s in _sub.findall(w):
            s = s.lower()
            if len(s) < 2 or s in STOP or s.isdigit():
                continue
            out.append(_stem.stemWord(s) if stem else s)
            if limit and len(out) >= limit:
                return out
    return out


def first_sentence(doc):
    doc = (doc or "").strip()
    m = re.search(r"\.\s|\n\s*\n", doc)
    return doc[: m.start()] if m else doc


class Symbol:
    __slots__ = ("id", "fqn", "name", "kind", "doc", "signature", "parent", "path")

    def __init__(self, row):
        (self.id, self.fqn, self.name, self.kind, self.doc, self.signature, self.parent,
         self.path) = row


def load(db_path):
    db = sqlite3.connect(db_path)
    marks = ",".join("?" * len(RETRIEVABLE))
    rows = db.execute(
        "SELECT s.id, s.fqn, s.name, s.kind, s.docstring, s.signature, s.parent_fqn, f.path "
        "FROM symbols s JOIN files f ON f.id = s.file_id "
        f"WHERE s.is_test = 0 AND s.kind IN ({marks})", RETRIEVABLE).fetchall()
    symbols = [Symbol(r) for r in rows]
    callees = {}
    for caller, callee in db.execute("SELECT caller_id, callee_id FROM edges"):
        callees.setdefault(caller, []).append(callee)
    return db, symbols, callees


def read_questions(path):
    out = []
    for line in open(path, encoding="utf-8"):
        if not line.strip() or line.startswith("#") or "\t" not in line:
            continue
        text, fqns = line.rstrip("\n").split("\t", 1)
        out.append((text, set(fqns.split("|"))))
    return out


def query_match(text):
    """The FTS5 query the quality run gives BM25 alone: the question's terms joined with OR."""
    terms, seen = [], set()
    for w in re.findall(r"[A-Za-z0-9_$\x80-\uffff]+", text):
        code = bool(re.search(r"_|[a-z][A-Z]|[A-Za-z][0-9]", w)) or (
            w[:1].isupper() and w[1:] != w[1:].upper() and w not in _CAPS)
        cands = [w.lower()] + ([s.lower() for s in _sub.findall(w)] if code else [])
        for t in cands:
            if (len(t) < 2 and not t.isdigit()) or t in _QUERY_STOP or t in seen:
                continue
            seen.add(t)
            terms.append(t)
    return " OR ".join(f'"{t}"' for t in terms)


_QUERY_STOP = set("""a about all an and any are as at be been being but by can could do does did
done for from get gets got has have having how i if in into is it its me my of on or our should so
some that the their them then there these this those to use used uses using was we were what when
where which while who whom why will with would you your find show tell explain happens work works
code implemented implement defined define handled handle handles called call calls way ways place
places""".split())
_CAPS = set("""A An The How What Where When Which Who Why Is Are Does Do Can Could Should Would Will
Find Show List Tell Explain Give Get Please This That These Those In On For From With Of To And Or
Not All Any Some My Our Your It If Tests Test Unit Module File Files Function Class Method Code
Where's I We You Use Using Why's Help Check Make Add""".split())


def bm25(db, text, limit):
    """(symbol id, score) best first, as the quality run's BM25 alone."""
    match = query_match(text)
    if not match:
        return []
    return db.execute(
        "SELECT t.rowid, -t.rank FROM symbol_text t JOIN symbols s ON s.id = t.rowid "
        "WHERE symbol_text MATCH ?1 AND s.is_test = 0 ORDER BY t.rank LIMIT ?2",
        (match, limit)).fetchall()
