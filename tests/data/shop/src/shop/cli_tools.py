"""Command-line helpers for the shop."""

import argparse

import shop.pricing as prices
from shop.cart import Cart as ShopCart


def parse(argv):
    """Parse the command line."""
    parser = argparse.ArgumentParser(prog="shop")
    parser.add_argument("items", nargs="*")
    parser.add_argument("--code")
    return parser.parse_args(argv)


def main(argv=None):
    args = parse(argv)
    cart = ShopCart("cli")
    for entry in args.items:
        name, price = entry.split("=")
        cart.add(name, prices.parse(price))
    print(cart.total(args.code))
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
