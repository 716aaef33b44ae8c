from feeds.store import open_cache


def test_evict():
    cache = open_cache("feeds.cache")
    assert cache.evict("a") == "a"


def test_evict_each(caches):
    caches["main"].evict("b")
