"""A tiny shop: carts, prices and receipts."""
