package com.shop.store;

/** The orders placed so far. */
public class OrderRepository extends Repository {
  @Override
  public void save(String id) {}

  public Query query() {
    return new Query(this);
  }
}
