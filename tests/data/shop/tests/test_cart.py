"""Tests of the carts."""

from shop import cart as cart_module
from shop.cart import Cart, GiftCart


def test_add_and_total():
    cart = Cart("ann")
    cart.add("apple", 1.0, 3)
    assert cart.total() == 3.6


class TestGiftCart:
    def test_wrapping(self):
        gift = GiftCart("bob")
        assert gift.total() == 2

    def test_format(self):
        assert cart_module.format_total(Cart("x")) == "0.00"
