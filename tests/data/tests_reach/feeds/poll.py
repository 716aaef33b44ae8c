from feeds.fetch import fetch


def poll(urls):
    return fetch(urls)
