from feeds.parse import parse


def load(text):
    return parse(text)


def load_all(texts):
    return [load(t) for t in texts]
