#!/usr/bin/python3
"""Simulation of bridging question words by English word vectors, on BM25 alone: for each question
term that fewer than RARE production names use (by a crude stem), the K nearest name words of the
repository in English (cosine >= THRESHOLD; with RECIP, only a name word that has the term among
its RECIP nearest English words) join the FTS5 query. Prints BM25 alone without and with them,
top-1 / top-5 / MRR@10, on each corpus's tuning half (odd questions) and its spent untouched set.

Usage: bridge.py TABLE THRESHOLD K RARE [RECIP] [-v]
TABLE: the English vector table (the converter's output); corpora indexed by bench/quality/run.
Tuning figures only.
"""
import os
import sqlite3
import sys
from collections import Counter

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import corpus  # noqa: E402

args = [a for a in sys.argv[1:] if a != '-v']
raw=open(args[0],'rb').read()
n=int.from_bytes(raw[8:12],'little'); d=100
words=[raw[16+i*24:16+(i+1)*24].rstrip(b'\0').decode() for i in range(n)]
M=np.frombuffer(raw,dtype=np.int8,offset=16+n*24).reshape(n,d).astype(np.float32)/127
idx={w:i for i,w in enumerate(words)}
def stem(w):
    for suf in ('ing','ed','es','s','er','e'):
        if w.endswith(suf) and len(w)-len(suf)>=3: return w[:-len(suf)]
    return w
def sub(name):
    return set(s.lower() for s in corpus._sub.findall(name) if len(s)>=2 and s.isalpha())
def run(repo, qfile, half, thr, k, rare):
    db=sqlite3.connect(repo+'/.tamsel/index.db')
    c=Counter()
    for (nm,) in db.execute("select name from symbols where is_test=0"):
        for w in sub(nm): c[w]+=1
    bystem=Counter()
    for w,k2 in c.items(): bystem[stem(w)]+=k2
    voc=[w for w,k2 in c.items() if k2>=2 and w in idx and w not in corpus._QUERY_STOP and w not in corpus.STOP]
    V=M[[idx[w] for w in voc]]
    fqn=dict(db.execute("select id,fqn from symbols"))
    qs=corpus.read_questions(qfile)
    if half: qs=qs[::2]
    res={'base':[], 'bridge':[]}
    for text,exp in qs:
        m=corpus.query_match(text)
        terms=[t.strip('"') for t in m.split(' OR ')] if m else []
        add=[]
        for t in terms:
            if bystem.get(stem(t),0)>=rare or t not in idx: continue
            s=V@M[idx[t]]; o=np.argsort(-s)
            got=0
            for i in o:
                if s[i]<thr or got>=k: break
                w=voc[i]
                if stem(w) in {stem(x) for x in terms}: continue
                if RECIP:
                    sy=M@M[idx[w]]
                    if (sy>sy[idx[t]]).sum()>RECIP: continue
                got+=1; add.append(w)
        for name,extra in (('base',[]),('bridge',add)):
            q=' OR '.join(f'"{t}"' for t in terms+extra)
            rows=db.execute("SELECT t.rowid FROM symbol_text t JOIN symbols s ON s.id=t.rowid WHERE symbol_text MATCH ?1 AND s.is_test=0 ORDER BY t.rank LIMIT 10",(q,)).fetchall() if q else []
            p=0
            for i,(r,) in enumerate(rows):
                if fqn[r] in exp: p=i+1; break
            res[name].append(p)
        if '-v' in sys.argv and add: print('   ',text[:60],'+',add, res['base'][-1], '->', res['bridge'][-1])
    out=[]
    for name in ('base','bridge'):
        P=res[name]; out.append(f"{name} {sum(p==1 for p in P)} {sum(1<=p<=5 for p in P)} {sum(1/p for p in P if p)/len(P):.3f}")
    return ' | '.join(out)
ROOT=os.path.dirname(os.path.abspath(__file__))+'/../../../'
Q=ROOT+'bench/quality/'; O=ROOT+'bench/out/quality/'
RECIP=int(args[4]) if len(args)>4 else 0
thr=float(args[1]); k=int(args[2]); rare=int(args[3])
for name,repo,tun,unt in (('stdlib',O+'stdlib',Q+'questions.tsv',Q+'questions_untouched_stdlib.tsv'),('django',O+'django',Q+'questions_django.tsv',Q+'questions_untouched_django.tsv'),('go',O+'go',Q+'questions_go.tsv',Q+'questions_untouched_go.tsv')):
    print(name,'tuning',run(repo,tun,True,thr,k,rare)); print(name,'untouched',run(repo,unt,False,thr,k,rare))
