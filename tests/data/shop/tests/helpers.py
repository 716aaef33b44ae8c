"""Shared steps of the tests."""

from shop import pricing


def discounted(amount, code):
    return pricing.apply_discount(amount, code)
