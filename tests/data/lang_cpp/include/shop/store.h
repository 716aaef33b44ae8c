#pragma once

#include <memory>
#include <string>

namespace shop {

/// Where records are kept.
class Repository {
 public:
  virtual ~Repository() = default;
  virtual void save(const std::string& id) = 0;
  int count() const { return 0; }
};

/// The orders placed so far.
class OrderRepository : public Repository {
 public:
  void save(const std::string& id) override;
  Repository& base() { return *this; }
};

/// Places orders.
class OrderService {
 public:
  OrderService();
  int place(const std::string& id);
  OrderRepository* repo() { return repo_.get(); }

 private:
  std::unique_ptr<OrderRepository> repo_;
};

/// A service with a fresh repository.
OrderService make_service();

}  // namespace shop
