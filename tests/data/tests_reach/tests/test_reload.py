from feeds.store import open_cache


def test_reload():
    assert open_cache("feeds.cache").load("a") == "a"
