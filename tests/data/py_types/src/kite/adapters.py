class Adapter:
    def __init__(self, url):
        self.url = url

    def send(self):
        return self.url
