use std::collections::HashMap;

/// Anything that keeps records.
pub trait Repository {
    fn save(&mut self, id: &str);

    /// How many records are kept.
    fn count(&self) -> usize {
        0
    }
}

/// The orders placed so far.
pub struct OrderRepository {
    orders: HashMap<String, u32>,
}

impl OrderRepository {
    pub fn new() -> Self {
        OrderRepository { orders: HashMap::new() }
    }

    pub fn query(&self) -> Query<'_> {
        Query { repo: self }
    }
}

impl Repository for OrderRepository {
    fn save(&mut self, id: &str) {
        self.orders.insert(id.to_string(), 1);
    }
}

/// A filter over the orders.
pub struct Query<'a> {
    repo: &'a OrderRepository,
}

impl<'a> Query<'a> {
    pub fn where_id(self, id: &str) -> Query<'a> {
        let _ = id;
        self
    }

    pub fn run(&self) -> usize {
        self.repo.count()
    }
}
