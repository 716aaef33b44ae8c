from kite.app import App


def test_dispatch(app):
    app.dispatch("/x")


def test_response(app):
    app.make_response("b").close()


def test_get(client):
    client.get("/")


def test_build():
    App.build()
