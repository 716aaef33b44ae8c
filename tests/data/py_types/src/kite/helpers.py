class Base:
    def __init__(self):
        self.ready = False

    def setup_finished(self):
        return self.ready
