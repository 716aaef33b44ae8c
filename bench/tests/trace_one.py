"""Runs one test module (or, with no name, an empty test) and writes which standard-library
functions it called. Usage: trace_one.py MODULE|'' OUT.json

Only 'call' events are taken (the tracer returns None, so no line events): a function counts once
however often it runs. Module and class bodies are left out, as importing a file is no test of it.
"""

import json
import os
import sys
import threading
import unittest

import test.support

STDLIB = os.path.dirname(os.__file__) + "/"
CO_NEWLOCALS = 0x2
seen = set()


def tracer(frame, event, arg):
    seen.add(frame.f_code)


def main():
    name, out = sys.argv[1], sys.argv[2]
    # As a plain regrtest run: no network, no big memory, no GUI.
    test.support.use_resources = []
    sys.settrace(tracer)
    threading.settrace(tracer)
    error = None
    try:
        if name:
            suite = unittest.defaultTestLoader.loadTestsFromName(name)
        else:
            suite = unittest.TestSuite([unittest.FunctionTestCase(lambda: None)])
        with open(os.devnull, "w") as sink:
            result = unittest.TextTestRunner(stream=sink, verbosity=0).run(suite)
    except BaseException as e:  # a module that cannot load is dropped, with the reason
        result, error = None, f"{type(e).__name__}: {e}"
    replaced = sys.gettrace() is not tracer
    sys.settrace(None)
    threading.settrace(None)
    functions = {}
    for code in seen:
        path = code.co_filename
        if not path.startswith(STDLIB) or not code.co_flags & CO_NEWLOCALS:
            continue
        functions.setdefault(path[len(STDLIB):], []).append([code.co_qualname, code.co_firstlineno])
    for listed in functions.values():
        listed.sort()
    record = {"module": name, "error": error, "tracer_replaced": replaced,
              "tests_run": result.testsRun if result else 0,
              "skipped": len(result.skipped) if result else 0,
              "functions": functions}
    with open(out, "w") as f:
        json.dump(record, f)
    sys.stdout.flush()
    os._exit(0)  # stray threads of a test must not hold the run


main()
