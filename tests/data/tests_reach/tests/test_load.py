from feeds.load import load, load_all


def test_load():
    assert load("A") == ["a"]
    assert load("B") == ["b"]


def test_load_all():
    assert load_all(["A"]) == [["a"]]
