from .app import App, create_app
