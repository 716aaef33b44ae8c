"""Prices and discounts."""


def apply_discount(amount, percent):
    """Take a percentage off an amount. Rounds to cents."""
    return round(amount * (100 - percent) / 100, 2)


def tax_for(amount, rate=0.2):
    """The tax owed on an amount."""
    return round(amount * rate, 2)
