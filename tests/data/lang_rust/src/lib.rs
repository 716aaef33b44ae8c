pub mod cart;
pub mod checkout;
pub mod price;
