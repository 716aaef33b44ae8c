package com.shop;

/** A cart whose total includes the wrapping. */
public class GiftCart extends Cart {
  public int withWrapping() {
    return total() + 2;
  }
}
