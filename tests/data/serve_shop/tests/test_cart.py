from shop.cart import Cart
from shop.checkout import pay


def test_total():
    cart = Cart()
    cart.add("apple", 2)
    assert cart.total() == 60


def test_pay_empties_the_cart():
    cart = Cart()
    cart.add("pear")
    assert pay(cart) == 45
    assert cart.items == []
