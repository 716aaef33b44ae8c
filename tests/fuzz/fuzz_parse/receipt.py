"""Printed receipts."""

from shop.cart import Cart


def print_receipt(cart: Cart) -> str:
    """Render the receipt of a cart as text."""
    lines = [f"{name}: {price}" for name, price in cart.items]
    lines.append(f"total: {cart.total()}")
    return "\n".join(lines)
