pub mod cart;
pub mod checkout;
pub mod price;
pub mod service;
pub mod store;
