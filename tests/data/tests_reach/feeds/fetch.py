from feeds.load import load_all


def fetch(urls):
    return load_all(urls)
