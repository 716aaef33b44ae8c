from typing import Optional

from .adapters import Adapter
from .json import JSONProvider
from .sansio.scaffold import Scaffold
from .wrappers import Request, Response


class App(Scaffold):
    default_request: Optional[Request] = None

    def __init__(self, name):
        super().__init__(name)
        self.json: JSONProvider = JSONProvider(self)
        self.adapter = Adapter(name)

    def make_response(self, body) -> "Response":
        return Response(body)

    def get_adapter(self, url):
        return Adapter(url)

    def dispatch(self, url):
        adapter = self.get_adapter(url)
        adapter.send()
        self.json.dumps({})
        Request(url).prepare()
        self.route("/")
        self.setup_finished()
        return self.make_response(url)

    def test_client(self):
        return Client(self)


class Client:
    def __init__(self, app: App):
        self.app = app

    def get(self, url):
        return self.app.dispatch(url)


def create_app() -> App:
    return App("kite")


default_app = create_app()


def handle(req: Request):
    req.prepare()
    default_app.dispatch(req.url)
