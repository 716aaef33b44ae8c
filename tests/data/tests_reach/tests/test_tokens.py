from feeds.tokens import split_words


def test_split():
    assert split_words("a b") == ["a", "b"]
