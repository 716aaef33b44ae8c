use shop::cart::{Cart, Item};

#[test]
fn adds_an_item() {
    let mut cart = Cart::new();
    cart.add(Item { name: "tea".into(), price: 3 });
    let total = cart.total();
    assert_eq!(total, 3);
}
