from feeds.parse import parse


def test_parse():
    assert parse("A b") == ["a", "b"]
