from helpers import discounted
from shop.pricing import apply_discount


def test_discount():
    assert apply_discount(100, "SAVE10") == 90


def test_discount_through_helper():
    assert discounted(100, "HALF") == 50
