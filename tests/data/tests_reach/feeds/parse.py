from feeds.tokens import split_words


def parse(text):
    return [w.lower() for w in split_words(text)]
