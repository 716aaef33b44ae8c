use shop::service::OrderService;

#[test]
fn places_an_order() {
    let mut service = OrderService::new();
    assert_eq!(service.place("a1"), 0);
}
