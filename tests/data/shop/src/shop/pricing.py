"""Prices, discounts and tax."""

import math

DISCOUNTS = {"SAVE10": 0.10, "HALF": 0.50}


def apply_discount(amount, code):
    """Apply a discount code to an amount."""
    rate = DISCOUNTS.get(code, 0.0)
    return round_price(amount * (1 - rate))


def with_tax(amount, rate):
    return round_price(amount * (1 + rate))


def round_price(amount):
    return math.floor(amount * 100 + 0.5) / 100


def parse(text):
    """Parse a price such as '3.50'."""
    return float(text)
