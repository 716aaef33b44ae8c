package com.shop;

import com.shop.store.OrderRepository;
import com.shop.store.Query;
import java.util.List;

/** Places orders and reports on them. */
public class OrderService {
  private final OrderRepository repo = new OrderRepository();

  public int place(String id) {
    this.repo.save(id);
    Query q = repo.query();
    q.where("id");
    return repo.query().where("id").run();
  }

  public int audit(OrderRepository other, List<String> ids) {
    var all = new Query(other);
    ids.forEach(id -> other.save(id));
    return all.run() + other.count() + ids.size();
  }
}
