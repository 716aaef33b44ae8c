"""Sales reports."""

from .cart import format_total
from .pricing import *  # noqa: F403


def summary(carts):
    lines = [format_total(cart) for cart in carts]
    return "\n".join(lines)


def read_amount(text):
    return parse(text)  # noqa: F405
