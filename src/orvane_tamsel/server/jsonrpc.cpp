#include "orvane_tamsel/server/jsonrpc.h"

namespace orvane_tamsel::server {

namespace {

// Reads events until the top-level "id" has its value, then stops the parse.
class IdFinder : public nlohmann::json_sax<Json> {
 public:
  Json id;

  bool null() override { return value(nullptr); }
  bool boolean(bool v) override { return value(v); }
  bool number_integer(number_integer_t v) override { return value(v); }
  bool number_unsigned(number_unsigned_t v) override { return value(v); }
  bool number_float(number_float_t v, const string_t&) override { return value(v); }
  bool string(string_t& v) override { return value(v); }
  bool binary(binary_t&) override { return value(nullptr); }
  bool start_object(std::size_t) override { return open(); }
  bool start_array(std::size_t) override { return open(); }
  bool end_object() override { return --depth_ > 0; }
  bool end_array() override { return --depth_ > 0; }
  bool key(string_t& k) override {
    at_id_ = depth_ == 1 && k == "id";
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  bool value(Json v) {
    if (!at_id_ || depth_ != 1) return depth_ > 0;
    id = std::move(v);
    return false;
  }
  bool open() {
    if (at_id_ && depth_ == 1) return false;  // an object or array is no id
    return ++depth_ <= 64;
  }

  int depth_ = 0;
  bool at_id_ = false;
};

}  // namespace

Json leading_id(std::string_view start) {
  // A number at the very end may have been cut: the parse stops before it.
  auto end = start.find_last_not_of("0123456789+-.eE");
  start = start.substr(0, end == std::string_view::npos ? 0 : end + 1);
  IdFinder finder;
  Json::sax_parse(start.begin(), start.end(), &finder, Json::input_format_t::json, false);
  return finder.id.is_string() || finder.id.is_number() ? finder.id : Json(nullptr);
}

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
