#!/usr/bin/env python3
# Method calls the Go type checker resolves (gotypes.tsv from gocheck) against the index's method
# edges at the same (file, line, method name): recall, in test code too, and precision by evidence.
import sqlite3, sys, collections, os
db, truth = sys.argv[1], sys.argv[2]
g = {}
for line in open(truth):
    path, ln, name, fqn, ddir = line.rstrip('\n').split('\t')
    if '/src/' in ddir: ddir = ddir.split('/src/', 1)[1]
    if ddir.startswith('vendor/'): continue
    g.setdefault((path, int(ln), name), set()).add((fqn, ddir))
con = sqlite3.connect(db)
rows = con.execute("""
SELECT f.path, c.line, s.name, s.fqn, g.path, c.evidence, 0 FROM call_sites c
JOIN files f ON f.id = c.file_id JOIN symbols s ON s.id = c.callee_id JOIN files g ON g.id = s.file_id
WHERE s.kind = 'method'""").fetchall()
idx = collections.defaultdict(list)
for path, ln, name, fqn, cpath, ev, typed in rows:
    idx[(path, ln, name)].append((fqn, os.path.dirname(cpath), ev, typed))
gkeys = {k for k in g if not k[0].startswith('vendor/') and '/testdata/' not in k[0]}
found = sum(1 for k in gkeys if any((f, d) in g[k] for f, d, _, _ in idx.get(k, [])))
test = [k for k in gkeys if k[0].endswith('_test.go')]
found_t = sum(1 for k in test if any((f, d) in g[k] for f, d, _, _ in idx.get(k, [])))
print(f"go/types concrete method calls: {len(gkeys)}; linked by the index: {found} recall {found/len(gkeys):.3f}; in tests {found_t}/{len(test)} = {found_t/max(1,len(test)):.3f}")
byev = collections.Counter(); bad = collections.Counter(); bad_ex = collections.defaultdict(list)
for k, lst in idx.items():
    if k not in g: continue
    for f, d, ev, typed in lst:
        byev[ev] += 1
        if (f, d) not in g[k]:
            bad[ev] += 1
            bad_ex[ev].append((k, f, d, sorted(g[k])[:1]))
tot = sum(byev.values()); wrong = sum(bad.values())
print(f"index method edges at go/types sites: {tot}, wrong {wrong}, precision {1 - wrong/tot:.4f}")
for ev in sorted(byev): print(f"  {ev:14s} {byev[ev]:7d} wrong {bad[ev]:5d}")
if len(sys.argv) > 3:  # a few wrong edges per evidence kind
    for ev in bad_ex:
        for e in bad_ex[ev][:4]: print(ev, e)
if os.environ.get("MISSES"):  # every missed call, with what the index holds at its line
    sites = collections.defaultdict(list)
    for path, ln, member, target, receiver, ev in con.execute("""
        SELECT f.path, c.line, CASE WHEN c.member <> '' THEN c.member ELSE c.target_fqn END,
               c.target_fqn, c.receiver, c.evidence FROM call_sites c JOIN files f ON f.id = c.file_id
        WHERE c.callee_id IS NULL"""):
        sites[(path, ln)].append((member, target, receiver, ev))
    with open(os.environ["MISSES"], "w") as out:
        for k in sorted(gkeys):
            if any((f, d) in g[k] for f, d, _, _ in idx.get(k, [])): continue
            held = [s for s in sites.get(k[:2], []) if s[0].rsplit('.', 1)[-1] == k[2]]
            out.write(f"{k[0]}:{k[1]}\t{k[2]}\t{sorted(g[k])[0][0]}\t{held}\n")
