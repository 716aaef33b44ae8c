"""Shopping carts."""

from . import pricing
from .models import Item
from .pricing import apply_discount

TAX_RATE = 0.2


class Cart:
    """A shopping cart holding items."""

    def __init__(self, owner):
        self.owner = owner
        self.items = []

    def add(self, name, price, quantity=1):
        """Add an item to the cart."""
        self.items.append(Item(name, price, quantity))
        return self

    def subtotal(self):
        return sum(item.price * item.quantity for item in self.items)

    def total(self, code=None):
        """The total with tax, after any discount code."""
        amount = self.subtotal()
        if code:
            amount = apply_discount(amount, code)
        return pricing.with_tax(amount, TAX_RATE)


class GiftCart(Cart):
    """A cart whose total includes the wrapping."""

    def total(self, code=None):
        return super().total(code) + self.wrapping()

    def wrapping(self):
        return 2


def format_total(cart):
    return f"{cart.total():.2f}"
