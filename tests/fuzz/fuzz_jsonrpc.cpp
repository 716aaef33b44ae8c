// One JSON-RPC line into the server's dispatch, tools running on a real index.

#include <spdlog/spdlog.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "indexer/temp_repo.h"
#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/server/session.h"

namespace {

struct Server {
  indexer_test::TempRepo repo{"serve_shop"};
  orvane_tamsel::server::LiveHost host{repo.root()};
  orvane_tamsel::server::Session fresh{host};
  orvane_tamsel::server::Session ready{host};
  Server() {
    spdlog::set_level(spdlog::level::off);
    ready.handle_line(
        R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})");
    ready.handle_line(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Server server;
  std::string_view line(reinterpret_cast<const char*>(data), size);
  // Both the state before initialize and after it; neither may throw. The line also stands for
  // the kept start of an oversized one.
  (void)server.fresh.handle_line(line);
  (void)server.ready.handle_line(line);
  (void)server.ready.oversized_line(line, 10);
  return 0;
}
