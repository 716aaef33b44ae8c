from feeds.store import open_cache


def test_evict():
    cache = open_cache("feeds.cache")
    assert cache.evict("a") == "a"
