from feeds.fetch import fetch


def test_fetch():
    assert fetch(["A"]) == [["a"]]
