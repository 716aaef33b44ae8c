"""Compares `tamsel tests` with the traced reference, per half of the source files.

Usage: compare.py TAMSEL CORPUS OUT_DIR   (reads OUT_DIR/reference.json)

Only the sampled test modules can be judged, so a listed test outside the sample is passed over:
the first 5 and first 10 are of the listed tests that belong to the sample. Per source file:
  precision@5  listed tests among the first 5 that run the file (files where any is listed)
  recall@10    reference tests among the first 10, of at most 10
  top in 5     the test that runs most of the file is among the first 5
  empty        the answer lists no test at all while the reference holds some
Halves by the sha1 of the path: even is the tuning half, odd the held-out half. Per-file lines of
the tuning half go to OUT_DIR/tuning_detail.tsv.
"""

import concurrent.futures
import glob
import hashlib
import json
import pathlib
import sqlite3
import subprocess
import sys


def listed_tests(tamsel, corpus, path):
    answer = subprocess.run([tamsel, "tests", "--repo", corpus, path], capture_output=True,
                            text=True, check=True).stdout
    answer = json.loads(answer)
    return [t["path"] for t in answer["tests"]], answer["total_count"]


def main():
    tamsel, corpus, out = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    ref = json.loads((out / "reference.json").read_text())
    sample = set(ref["sample"])
    db = sqlite3.connect(glob.glob(str(corpus / ".tamsel" / "*.db"))[0])
    product = {p for (p,) in db.execute("SELECT path FROM files WHERE is_test = 0")}
    files = sorted(p for p in ref["reference"] if p in product)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        answers = dict(zip(files, pool.map(lambda p: listed_tests(tamsel, corpus, p), files)))
    halves = {"tuning": [], "held-out": []}
    detail = []
    for path in files:
        wanted = ref["reference"][path]
        listed, total = answers[path]
        judged = [t for t in listed if t in sample]
        row = {"p5": (sum(t in wanted for t in judged[:5]) / len(judged[:5])) if judged else None,
               "r10": len(set(judged[:10]) & set(wanted)) / min(10, len(wanted)),
               "top5": wanted[0] in judged[:5], "empty": total == 0}
        half = "tuning" if int(hashlib.sha1(path.encode()).hexdigest(), 16) % 2 == 0 else "held-out"
        halves[half].append(row)
        if half == "tuning":
            detail.append(f"{path}\t{row['p5']}\t{row['r10']:.2f}\t{total}\t{','.join(judged[:5])}"
                          f"\t{','.join(wanted[:5])}")
    (out / "tuning_detail.tsv").write_text(
        "path\tp@5\tr@10\tlisted\tfirst judged\treference\n" + "\n".join(detail) + "\n")
    print(f"sample: {len(sample)} test modules, {len(ref['dropped'])} dropped; "
          f"{len(files)} source files run by them")
    print("| half | files | precision@5 | recall@10 | top in 5 | empty |")
    print("|---|---|---|---|---|---|")
    for name, rows in halves.items():
        judged = [r["p5"] for r in rows if r["p5"] is not None]
        print(f"| {name} | {len(rows)} | {sum(judged) / max(1, len(judged)):.3f} "
              f"({len(judged)} files) | {sum(r['r10'] for r in rows) / len(rows):.3f} | "
              f"{sum(r['top5'] for r in rows) / len(rows):.3f} | "
              f"{sum(r['empty'] for r in rows)} ({sum(r['empty'] for r in rows) / len(rows):.1%}) |")


main()
