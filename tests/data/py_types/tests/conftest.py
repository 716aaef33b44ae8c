import pytest

from kite import create_app


@pytest.fixture
def app():
    return create_app()


@pytest.fixture
def client(app):
    yield app.test_client()
