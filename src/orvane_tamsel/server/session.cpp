#include "orvane_tamsel/server/session.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <stop_token>
#include <vector>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/server/jsonrpc.h"
#include "orvane_tamsel/server/tools_list.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::server {

namespace {

// Deeper messages are refused before parsing: copying or printing them would recurse that deep.
constexpr std::size_t MAX_DEPTH = 64;

// The deepest nesting of arrays and objects in the text, strings skipped.
std::size_t nesting_depth(std::string_view text) {
  std::size_t depth = 0, deepest = 0;
  bool in_string = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (in_string) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        in_string = false;
      }
    } else if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

// An error the handler of one request raises; becomes the JSON-RPC error of that request.
struct RpcError {
  int code;
  std::string message;
};

bool valid_id(const Json& id) {
  return id.is_string() || id.is_number();
}

Json text_result(const std::string& text, bool is_error) {
  Json content = Json::object();
  content["type"] = "text";
  content["text"] = text;
  Json result = Json::object();
  result["content"] = Json::array({std::move(content)});
  result["isError"] = is_error;
  return result;
}

}  // namespace

void Session::cancel(const Json& id) {
  if (!valid_id(id)) return;
  std::lock_guard lock(calls_mutex_);
  // A call already answered, or never made, has nothing to stop.
  if (auto it = calls_.find(id.dump()); it != calls_.end()) it->second.request_stop();
}

void Session::cancel_all() {
  std::lock_guard lock(calls_mutex_);
  for (auto& [id, stop] : calls_) stop.request_stop();
}

std::string Session::oversized_line(std::string_view start, std::size_t limit) const {
  return wire_text(error_message(leading_id(start), INVALID_REQUEST,
                                 "message too large: a line may hold at most " +
                                     std::to_string(limit) + " bytes; send a shorter request"));
}

std::optional<std::string> Session::handle_line(std::string_view line) {
  auto accepted = accept(line);
  return accepted.work ? accepted.work() : accepted.reply;
}

Session::Accepted Session::accept(std::string_view line) {
  if (nesting_depth(line) > MAX_DEPTH) {
    return {wire_text(error_message(
                nullptr, INVALID_REQUEST,
                "invalid request: nested deeper than " + std::to_string(MAX_DEPTH) + " levels")),
            {}};
  }
  Json message;
  try {
    message = Json::parse(line.begin(), line.end());
  } catch (const Json::exception& e) {  // a syntax error, or a number too large for a double
    return {wire_text(error_message(nullptr, PARSE_ERROR,
                                    std::string("parse error: not valid JSON in UTF-8 (") +
                                        e.what() + "); send one JSON object per line")),
            {}};
  }
  auto outcome =
      message.is_array() && !message.empty() ? handle_batch(message) : handle_message(message);
  Accepted accepted;
  if (outcome.reply) accepted.reply = wire_text(*outcome.reply);
  if (outcome.later) {
    accepted.work = [later = std::move(outcome.later)]() -> std::optional<std::string> {
      auto reply = later();
      if (!reply) return std::nullopt;
      return wire_text(*reply);
    };
  }
  return accepted;
}

Session::Outcome Session::handle_message(const Json& message) {
  if (!message.is_object()) {
    return {error_message(nullptr, INVALID_REQUEST,
                          std::string("invalid request: expected a JSON-RPC object, got ") +
                              (!message.is_array() ? message.type_name()
                               : message.empty()   ? "an empty batch"
                                                   : "an array inside a batch")),
            {}};
  }
  return handle_request(message);
}

// Each element is handled as a line of its own; the answers go back together, as one array, once
// the tool calls among them are answered too.
Session::Outcome Session::handle_batch(const Json& batch) {
  auto now = std::make_shared<Json>(Json::array());
  std::vector<std::function<std::optional<Json>()>> later;
  for (const auto& message : batch) {
    auto outcome = handle_message(message);
    if (outcome.reply) now->push_back(std::move(*outcome.reply));
    if (outcome.later) later.push_back(std::move(outcome.later));
  }
  if (later.empty()) {
    if (now->empty()) return {};  // notifications only
    return {std::move(*now), {}};
  }
  return {std::nullopt, [now, later = std::move(later)]() -> std::optional<Json> {
            for (const auto& run : later) {
              if (auto reply = run()) now->push_back(std::move(*reply));
            }
            if (now->empty()) return std::nullopt;
            return std::move(*now);
          }};
}

Session::Outcome Session::handle_request(const Json& message) {
  auto id_it = message.find("id");
  bool has_id = id_it != message.end();
  Json id = has_id ? *id_it : Json(nullptr);
  auto method_it = message.find("method");
  bool has_method = method_it != message.end();
  // A response from the client (we send no requests): nothing to answer.
  if (!has_method && has_id && (message.contains("result") || message.contains("error"))) {
    return {};
  }
  auto jsonrpc = message.find("jsonrpc");
  if (jsonrpc == message.end() || *jsonrpc != "2.0") {
    return {error_message(has_id && valid_id(id) ? id : Json(nullptr), INVALID_REQUEST,
                          "invalid request: \"jsonrpc\" must be \"2.0\""),
            {}};
  }
  if (has_id && !valid_id(id)) {
    return {
        error_message(nullptr, INVALID_REQUEST,
                      std::string("invalid request: \"id\" must be a string or a number, not ") +
                          id.type_name()),
        {}};
  }
  if (!has_method || !method_it->is_string()) {
    return {error_message(id, INVALID_REQUEST,
                          "invalid request: \"method\" must be a string naming the method"),
            {}};
  }
  const auto& method = method_it->get_ref<const std::string&>();
  Json params = message.value("params", Json::object());
  if (!has_id) {
    // Notifications are never answered.
    if (method == "notifications/cancelled" && params.is_object() && params.contains("requestId"))
      cancel(params["requestId"]);
    return {};
  }
  if (!params.is_object()) {
    return {error_message(id, INVALID_PARAMS, "invalid params: \"params\" must be an object"), {}};
  }
  try {
    if (method == "ping") return {result_message(id, Json::object()), {}};
    if (method == "initialize") return {result_message(id, initialize(params)), {}};
    if (method != "tools/list" && method != "tools/call") {
      return {
          error_message(id, METHOD_NOT_FOUND,
                        "method not found: '" + method +
                            "'; this server offers initialize, ping, tools/list and tools/call"),
          {}};
    }
    if (protocol_version_.empty()) {
      return {error_message(id, INVALID_REQUEST,
                            "the session is not initialized: send initialize first"),
              {}};
    }
    if (method == "tools/list") return {result_message(id, tools_list()), {}};
    return tools_call(id, params);
  } catch (const RpcError& e) {
    return {error_message(id, e.code, e.message), {}};
  } catch (const std::exception& e) {
    spdlog::error("serve: {} failed: {}", method, e.what());
    return {error_message(id, INTERNAL_ERROR, std::string("internal error: ") + e.what()), {}};
  }
}

Json Session::initialize(const Json& params) {
  if (!protocol_version_.empty()) {
    throw RpcError{INVALID_REQUEST,
                   "invalid request: the session is already initialized (protocol " +
                       protocol_version_ + "); initialize is sent once, as the first request"};
  }
  auto version = params.find("protocolVersion");
  if (version == params.end() || !version->is_string()) {
    throw RpcError{INVALID_PARAMS,
                   "invalid params: initialize needs \"protocolVersion\" (a string "
                   "such as \"" +
                       PROTOCOL_VERSIONS.front() + "\")"};
  }
  std::string chosen = PROTOCOL_VERSIONS.front();
  for (const auto& v : PROTOCOL_VERSIONS) {
    if (v == *version) chosen = v;
  }
  protocol_version_ = chosen;
  Json result = Json::object();
  result["protocolVersion"] = chosen;
  result["capabilities"] = Json{{"tools", Json{{"listChanged", false}}}};
  result["serverInfo"] = Json{{"name", "tamsel"}, {"version", TAMSEL_VERSION}};
  result["instructions"] = INSTRUCTIONS;
  return result;
}

// The name and arguments are checked now; the tool runs later, in its turn.
Session::Outcome Session::tools_call(const Json& id, const Json& params) {
  auto name_it = params.find("name");
  if (name_it == params.end() || !name_it->is_string()) {
    throw RpcError{INVALID_PARAMS, "invalid params: tools/call needs \"name\", the tool's name"};
  }
  const auto& name = name_it->get_ref<const std::string&>();
  const auto* tool = find_tool(name);
  if (tool == nullptr) {
    std::string names;
    for (const auto& t : TOOLS) names += (names.empty() ? "" : ", ") + t.name;
    throw RpcError{INVALID_PARAMS,
                   "invalid params: unknown tool '" + name + "'; the tools are " + names};
  }
  Json arguments;
  try {
    arguments = tool_handlers::checked_arguments(*tool, params.value("arguments", Json::object()));
  } catch (const tool_handlers::InvalidArguments& e) {
    throw RpcError{INVALID_PARAMS, std::string("invalid params: ") + e.what()};
  } catch (const tool_handlers::ToolError& e) {
    return {result_message(id, text_result(tool_result_text(tool_handlers::error_answer(e)), true)),
            {}};
  }
  std::stop_source stop;
  {
    std::lock_guard lock(calls_mutex_);
    if (!calls_.emplace(id.dump(), stop).second) {
      throw RpcError{INVALID_REQUEST, "invalid request: the id " + id.dump() +
                                          " belongs to a request not yet answered; give each "
                                          "request an id of its own"};
    }
  }
  return {std::nullopt,
          [this, id, name, arguments = std::move(arguments), params,
           token = stop.get_token()]() -> std::optional<Json> {
            auto reply = run_tool(id, name, arguments, params, token);
            std::lock_guard lock(calls_mutex_);
            calls_.erase(id.dump());
            // A request cancelled before or while it ran gets no answer.
            if (token.stop_requested()) return std::nullopt;
            return reply;
          }};
}

std::optional<Json> Session::run_tool(const Json& id, const std::string& name,
                                      const Json& arguments, const Json& params,
                                      std::stop_token stop) {
  if (stop.stop_requested()) return std::nullopt;
  auto meta = params.find("_meta");
  const Json* token = nullptr;
  if (meta != params.end() && meta->is_object()) {
    auto it = meta->find("progressToken");
    if (it != meta->end() && (it->is_string() || it->is_number_integer())) token = &*it;
  }
  struct Stop {
    ToolHost& host;
    bool reporting;
    ~Stop() {
      if (reporting) host.report_progress({});
    }
  } stop_reporting{host_, token != nullptr && notify_};
  if (stop_reporting.reporting) {
    // The progress of one token only ever grows, and ends with its call's cancellation.
    auto last = std::make_shared<std::int64_t>(-1);
    host_.report_progress([this, token = *token, last, stop](std::int64_t done, std::int64_t total,
                                                             const std::string& message) {
      if (done <= *last || stop.stop_requested()) return;
      *last = done;
      Json params = Json::object();
      params["progressToken"] = token;
      params["progress"] = done;
      if (total > 0) params["total"] = total;
      if (!message.empty()) params["message"] = message;
      Json note = Json::object();
      note["jsonrpc"] = "2.0";
      note["method"] = "notifications/progress";
      note["params"] = std::move(params);
      notify_(wire_text(note));
    });
  }
  if (!host_.wait_until_ready(stop)) return std::nullopt;
  try {
    Json result = text_result(tool_result_text(host_.call_tool(name, arguments)), false);
    if (auto when = host_.indexed_at(); !when.empty()) {
      result["_meta"] = Json{{INDEXED_AT_META, when}};
    }
    return result_message(id, std::move(result));
  } catch (const tool_handlers::ToolError& e) {
    return result_message(id, text_result(tool_result_text(tool_handlers::error_answer(e)), true));
  } catch (const tool_handlers::InvalidArguments& e) {
    return error_message(id, INVALID_PARAMS, std::string("invalid params: ") + e.what());
  } catch (const std::exception& e) {
    spdlog::error("serve: tool {} failed: {}", name, e.what());
    Json answer = Json::object();
    answer["error"] = std::string("the tool failed: ") + e.what();
    answer["hint"] = "try again; if it keeps failing, rebuild the index with `tamsel index`";
    return result_message(id, text_result(tool_result_text(answer), true));
  }
}

}  // namespace orvane_tamsel::server
