package com.shop;

public class Checkout {
  private final Cart cart;

  public Checkout(Cart cart) {
    this.cart = cart;
  }

  public int pay() {
    audit();
    return cart.total();
  }
}
