#include "orvane_tamsel/server/jsonrpc.h"

namespace orvane_tamsel::server {

Json result_message(const Json& id, Json result) {
  Json m = Json::object();
  m["jsonrpc"] = "2.0";
  m["id"] = id;
  m["result"] = std::move(result);
  return m;
}

Json error_message(const Json& id, int code, const std::string& message) {
  Json error = Json::object();
  error["code"] = code;
  error["message"] = message;
  Json m = Json::object();
  m["jsonrpc"] = "2.0";
  m["id"] = id;
  m["error"] = std::move(error);
  return m;
}

std::string wire_text(const Json& message) {
  return message.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace orvane_tamsel::server
