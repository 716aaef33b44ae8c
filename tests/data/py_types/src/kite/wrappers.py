class Request:
    def __init__(self, url):
        self.url = url

    def prepare(self):
        return self


class Response:
    def __init__(self, body):
        self.body = body

    def close(self):
        self.body = None
