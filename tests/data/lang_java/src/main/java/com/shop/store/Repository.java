package com.shop.store;

/** Where records are kept. */
public abstract class Repository {
  public abstract void save(String id);

  public int count() {
    return 0;
  }
}
