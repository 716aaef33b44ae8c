"""The shopping cart."""

from shop.pricing import apply_discount, tax_for


class Cart:
    """Items a customer is about to buy."""

    def __init__(self):
        self.items = []

    def add(self, name, price):
        """Put an item in the cart."""
        self.items.append((name, price))

    def total(self, percent=0):
        """The amount due, after the discount and with tax."""
        subtotal = sum(price for _, price in self.items)
        discounted = apply_discount(subtotal, percent)
        return discounted + tax_for(discounted)
