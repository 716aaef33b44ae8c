#include "shop/store.h"

namespace shop {

void OrderRepository::save(const std::string& id) { (void)id; }

OrderService::OrderService() : repo_(std::make_unique<OrderRepository>()) {}

int OrderService::place(const std::string& id) {
  repo_->save(id);
  return this->repo_->count();
}

OrderService make_service() { return OrderService(); }

}  // namespace shop
