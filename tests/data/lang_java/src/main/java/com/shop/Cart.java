package com.shop;

import java.util.ArrayList;
import java.util.List;
import com.shop.util.Prices;

/**
 * Cart holds the items a customer picked.
 */
public class Cart {
  private final List<Item> items = new ArrayList<>();

  public Cart() {}

  /** Adds an item to the cart. */
  public void add(Item item) {
    items.add(item);
  }

  public int total() {
    int sum = 0;
    for (Item i : items) sum += i.price();
    return sum;
  }

  public String label() {
    return Prices.format(this.total());
  }

  /** A line of the cart. */
  public static class Entry {}
}
