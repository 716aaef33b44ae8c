"""The reference: which test modules of Python's standard library really run each source file.

Usage: reference.py OUT_DIR   (writes OUT_DIR/reference.json; traces cached in OUT_DIR/traces)

The sample: every module test.<...>.test_* under the stdlib's test package, ordered by the sha1 of
its dotted name; the first SAMPLE are traced. A module is dropped (and listed) when it fails to
load, runs no test, replaces the tracer, or outlives TIMEOUT. For each traced module, the functions
it ran less those an empty unittest run already runs; a source file's reference tests are the
modules that ran at least one of its functions, most distinct functions first.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile

# The library the benchmark indexes, run by its own interpreter (not whichever python3 is first).
STDLIB = pathlib.Path("/usr/lib/python3.11")
PYTHON = "/usr/bin/python3.11"
HERE = pathlib.Path(__file__).resolve().parent
SAMPLE = 96
TIMEOUT = 120  # seconds per traced module


def candidates():
    names = []
    for path in (STDLIB / "test").rglob("test_*.py"):
        parts = path.relative_to(STDLIB).with_suffix("").parts
        packages = [STDLIB.joinpath(*parts[:i]) for i in range(1, len(parts))]
        if all((p / "__init__.py").exists() for p in packages):
            names.append(".".join(parts))
    return sorted(names, key=lambda n: hashlib.sha1(n.encode()).hexdigest())


def trace(name, cache):
    out = cache / f"{name or '_empty'}.json"
    if out.exists():
        return json.loads(out.read_text())
    with tempfile.TemporaryDirectory() as cwd:
        try:
            subprocess.run(["nice", PYTHON, "-I", str(HERE / "trace_one.py"), name,
                            str(out)], cwd=cwd, timeout=TIMEOUT, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                           env={**os.environ, "TMPDIR": cwd})
        except subprocess.TimeoutExpired:
            pass
    record = (json.loads(out.read_text()) if out.exists() else
              {"module": name, "error": f"no answer within {TIMEOUT} s", "functions": {}})
    out.write_text(json.dumps(record))
    return record


def test_path(name):
    return name.replace(".", "/") + ".py"


def main():
    out = pathlib.Path(sys.argv[1]).resolve()
    cache = out / "traces"
    cache.mkdir(parents=True, exist_ok=True)
    sample = candidates()[:SAMPLE]
    base = trace("", cache)
    empty = {(p, tuple(f)) for p, fs in base["functions"].items() for f in fs}
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        records = list(pool.map(lambda n: trace(n, cache), sample))
    kept, dropped, runs = [], {}, {}
    for r in records:
        reason = (r.get("error") or ("tracer replaced" if r.get("tracer_replaced") else None)
                  or ("no test ran" if not r.get("tests_run") else None))
        if reason:
            dropped[r["module"]] = reason
            continue
        kept.append(test_path(r["module"]))
        for path, functions in r["functions"].items():
            n = sum((path, tuple(f)) not in empty for f in functions)
            if n:
                runs.setdefault(path, {})[test_path(r["module"])] = n
    reference = {path: sorted(tests, key=lambda t: (-tests[t], t)) for path, tests in runs.items()}
    weights = {path: tests for path, tests in runs.items()}
    (out / "reference.json").write_text(json.dumps(
        {"sample": kept, "dropped": dropped, "reference": reference, "functions": weights},
        indent=1, sort_keys=True))
    print(f"sample {len(sample)}: traced {len(kept)}, dropped {len(dropped)}; "
          f"{len(reference)} files run", file=sys.stderr)


main()
