from shop.cart import Cart
from shop.receipt import print_receipt


def test_receipt_lists_items():
    cart = Cart()
    cart.add("pen", 10)
    assert "pen: 10" in print_receipt(cart)
