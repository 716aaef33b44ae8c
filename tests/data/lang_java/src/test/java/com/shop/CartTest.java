package com.shop;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

class CartTest {
  @Test
  void addsAnItem() {
    Cart cart = new Cart();
    cart.add(new Item("tea", 3));
    assertEquals(3, cart.total());
  }
}
