#include "shop/store.h"

namespace shop {

int report() {
  auto service = make_service();
  service.place("a1");
  auto repo = std::make_unique<OrderRepository>();
  repo->save("a2");
  return service.repo()->count() + repo->base().count();
}

}  // namespace shop
