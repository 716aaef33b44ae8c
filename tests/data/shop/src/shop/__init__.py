"""A small shop: carts, prices and a command line."""

from .cart import Cart
from .pricing import apply_discount as discount

__all__ = ["Cart", "discount"]
VERSION = "1.0"
