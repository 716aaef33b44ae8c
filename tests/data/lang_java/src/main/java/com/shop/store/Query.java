package com.shop.store;

/** A filter over a repository's records. */
public class Query {
  private final OrderRepository repo;

  public Query(OrderRepository repo) {
    this.repo = repo;
  }

  public Query where(String field) {
    return this;
  }

  public int run() {
    return repo.count();
  }
}
