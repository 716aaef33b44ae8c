use crate::store::{OrderRepository, Repository};

/// Places orders and reports on them.
pub struct OrderService {
    repo: Box<OrderRepository>,
}

impl OrderService {
    pub fn new() -> Self {
        OrderService { repo: Box::new(OrderRepository::new()) }
    }

    pub fn place(&mut self, id: &str) -> usize {
        self.repo.save(id);
        let q = self.repo.query();
        q.where_id(id).run()
    }
}

/// What the repository holds, counted two ways.
pub fn audit(repo: &OrderRepository) -> usize {
    let service = OrderService::new();
    let counted = repo.count();
    counted + service.repo.query().run()
}
