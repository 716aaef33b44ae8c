package com.shop.store;

/** Orders moved out of the active repository. */
public class ArchivedOrders extends OrderRepository {
  public int archived() {
    return count() + query().run();
  }
}
