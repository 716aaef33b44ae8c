use shop::cart::{Cart, Item};
use shop::price::format_price;

#[test]
fn adds_an_item() {
    let mut cart = Cart::new();
    cart.add(Item { name: "tea".into(), price: 3 });
    let total = cart.total();
    assert_eq!(total, 3);
}

#[test]
fn labels_in_euros() {
    let cart = Cart::new();
    assert_eq!(cart.label(), format_price(0));
    let all = vec![Cart::new()];
    println!("{}", all.len());
}
