class JSONProvider:
    def __init__(self, app):
        self.app = app

    def dumps(self, obj):
        return str(obj)
