"""A shopping cart."""

from shop.pricing import unit_price


class Cart:
    """Items a customer is about to buy."""

    def __init__(self):
        self.items = []

    def add(self, sku, quantity=1):
        """Add an item to the cart."""
        self.items.append((sku, quantity))

    def total(self):
        """The price of every item, in cents."""
        return sum(unit_price(sku) * quantity for sku, quantity in self.items)
