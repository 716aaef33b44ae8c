from shop.cart import Cart
from shop.pricing import apply_discount


def test_total_applies_discount():
    cart = Cart()
    cart.add("pen", 10)
    assert cart.total(50) == 6.0


def test_apply_discount_rounds():
    assert apply_discount(9.999, 10) == 9.0
