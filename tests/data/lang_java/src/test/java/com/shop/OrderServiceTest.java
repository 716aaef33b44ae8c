package com.shop;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

class OrderServiceTest {
  private final OrderService service = new OrderService();

  @Test
  void placesAnOrder() {
    assertEquals(0, service.place("a1"));
  }
}
