import importlib


def open_cache(module):
    return importlib.import_module(module).Cache()
