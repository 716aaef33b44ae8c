from feeds.poll import poll


def test_poll():
    assert poll(["A"]) == [["a"]]
