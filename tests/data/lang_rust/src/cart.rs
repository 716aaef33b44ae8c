use crate::price::format_price;

/// A line of the cart.
#[derive(Debug, Clone)]
pub struct Item {
    pub name: String,
    pub price: u32,
}

/// Cart holds the items a customer picked.
pub struct Cart {
    items: Vec<Item>,
}

impl Cart {
    /// Makes an empty cart.
    pub fn new() -> Self {
        Cart { items: Vec::new() }
    }

    /// Adds an item to the cart.
    pub fn add(&mut self, item: Item) {
        self.items.push(item);
    }

    pub fn total(&self) -> u32 {
        self.items.iter().map(|i| i.price).sum()
    }

    pub fn label(&self) -> String {
        format_price(self.total())
    }
}

/// Anything with a price.
pub trait Priced {
    fn price(&self) -> u32;
}

#[cfg(test)]
mod tests {
    use super::*;

    fn sample() -> Cart {
        Cart::new()
    }

    #[test]
    fn empty_cart_totals_zero() {
        let cart = Cart::new();
        let total = cart.total();
        let again = sample();
        assert_eq!(total, again.total());
    }
}
