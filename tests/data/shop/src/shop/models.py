"""Plain data records."""

from dataclasses import dataclass


@dataclass
class Item:
    """One line of a cart."""

    name: str
    price: float
    quantity: int = 1

    def describe(self):
        return f"{self.quantity} x {self.name}"
