#include "orvane_tamsel/server/session.h"

#include <algorithm>
#include <exception>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/server/jsonrpc.h"
#include "orvane_tamsel/server/tools_list.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel::server {

namespace {

constexpr std::size_t MAX_CANCELLED = 1024;
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

void Session::note_cancel(std::string_view line) {
  if (line.find("notifications/cancelled") == std::string_view::npos) return;
  auto message = Json::parse(line.begin(), line.end(), nullptr, false);
  if (!message.is_object() || message.contains("id") ||
      message.value("method", Json()) != "notifications/cancelled") {
    return;
  }
  auto params = message.find("params");
  if (params != message.end() && params->is_object() && params->contains("requestId")) {
    cancel((*params)["requestId"]);
  }
}

void Session::cancel(const Json& id) {
  if (!valid_id(id)) return;
  std::lock_guard lock(cancel_mutex_);
  if (cancelled_.insert(id.dump()).second) {
    cancel_order_.push_back(id.dump());
    if (cancel_order_.size() > MAX_CANCELLED) {
      cancelled_.erase(cancel_order_.front());
      cancel_order_.pop_front();
    }
  }
}

bool Session::take_cancelled(const Json& id) {
  std::lock_guard lock(cancel_mutex_);
  return cancelled_.erase(id.dump()) > 0;
}

std::string Session::oversized_line(std::size_t limit) const {
  return wire_text(error_message(nullptr, INVALID_REQUEST,
                                 "message too large: a line may hold at most " +
                                     std::to_string(limit) + " bytes; send a shorter request"));
}

std::optional<std::string> Session::handle_line(std::string_view line) {
  if (nesting_depth(line) > MAX_DEPTH) {
    return wire_text(error_message(
        nullptr, INVALID_REQUEST,
        "invalid request: nested deeper than " + std::to_string(MAX_DEPTH) + " levels"));
  }
  Json message;
  try {
    message = Json::parse(line.begin(), line.end());
  } catch (const Json::exception& e) {  // a syntax error, or a number too large for a double
    return wire_text(error_message(nullptr, PARSE_ERROR,
                                   std::string("parse error: not valid JSON in UTF-8 (") +
                                       e.what() + "); send one JSON object per line"));
  }
  if (!message.is_object()) {
    return wire_text(error_message(
        nullptr, INVALID_REQUEST,
        std::string("invalid request: expected a JSON-RPC object, got ") +
            (message.is_array() ? "an array (batches are not accepted)" : message.type_name())));
  }
  auto reply = handle_request(message);
  if (!reply) return std::nullopt;
  return wire_text(*reply);
}

std::optional<Json> Session::handle_request(const Json& message) {
  auto id_it = message.find("id");
  bool has_id = id_it != message.end();
  Json id = has_id ? *id_it : Json(nullptr);
  auto method_it = message.find("method");
  bool has_method = method_it != message.end();
  // A response from the client (we send no requests): nothing to answer.
  if (!has_method && has_id && (message.contains("result") || message.contains("error"))) {
    return std::nullopt;
  }
  auto jsonrpc = message.find("jsonrpc");
  if (jsonrpc == message.end() || *jsonrpc != "2.0") {
    return error_message(has_id && valid_id(id) ? id : Json(nullptr), INVALID_REQUEST,
                         "invalid request: \"jsonrpc\" must be \"2.0\"");
  }
  if (has_id && !valid_id(id)) {
    return error_message(
        nullptr, INVALID_REQUEST,
        std::string("invalid request: \"id\" must be a string or a number, not ") + id.type_name());
  }
  if (!has_method || !method_it->is_string()) {
    return error_message(id, INVALID_REQUEST,
                         "invalid request: \"method\" must be a string naming the method");
  }
  const auto& method = method_it->get_ref<const std::string&>();
  Json params = message.value("params", Json::object());
  if (!has_id) {
    // Notifications are never answered.
    if (method == "notifications/cancelled" && params.is_object()) {
      if (params.contains("requestId")) cancel(params["requestId"]);
    }
    return std::nullopt;
  }
  if (!params.is_object()) {
    return error_message(id, INVALID_PARAMS, "invalid params: \"params\" must be an object");
  }
  if (take_cancelled(id)) return std::nullopt;
  try {
    if (method == "ping") return result_message(id, Json::object());
    if (method == "initialize") return result_message(id, initialize(params));
    if (method != "tools/list" && method != "tools/call") {
      return error_message(id, METHOD_NOT_FOUND,
                           "method not found: '" + method +
                               "'; this server offers initialize, ping, tools/list and tools/call");
    }
    if (!initialized_) {
      return error_message(id, INVALID_REQUEST,
                           "the session is not initialized: send initialize first");
    }
    if (method == "tools/list") return result_message(id, tools_list());
    Json result = tools_call(id, params);
    // A request cancelled while it ran gets no answer.
    if (take_cancelled(id)) return std::nullopt;
    return result_message(id, std::move(result));
  } catch (const RpcError& e) {
    return error_message(id, e.code, e.message);
  } catch (const std::exception& e) {
    spdlog::error("serve: {} failed: {}", method, e.what());
    return error_message(id, INTERNAL_ERROR, std::string("internal error: ") + e.what());
  }
}

Json Session::initialize(const Json& params) {
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
  initialized_ = true;
  Json result = Json::object();
  result["protocolVersion"] = chosen;
  result["capabilities"] = Json{{"tools", Json{{"listChanged", false}}}};
  result["serverInfo"] = Json{{"name", "tamsel"}, {"version", TAMSEL_VERSION}};
  result["instructions"] = INSTRUCTIONS;
  return result;
}

Json Session::tools_call(const Json& id, const Json& params) {
  (void)id;
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
    return text_result(tool_result_text(tool_handlers::error_answer(e)), true);
  }
  try {
    Json result = text_result(tool_result_text(call_with_progress(name, arguments, params)), false);
    if (auto when = host_.indexed_at(); !when.empty()) {
      result["_meta"] = Json{{INDEXED_AT_META, when}};
    }
    return result;
  } catch (const tool_handlers::ToolError& e) {
    return text_result(tool_result_text(tool_handlers::error_answer(e)), true);
  } catch (const tool_handlers::InvalidArguments& e) {
    throw RpcError{INVALID_PARAMS, std::string("invalid params: ") + e.what()};
  } catch (const std::exception& e) {
    spdlog::error("serve: tool {} failed: {}", name, e.what());
    Json answer = Json::object();
    answer["error"] = std::string("the tool failed: ") + e.what();
    answer["hint"] = "try again; if it keeps failing, rebuild the index with `tamsel index`";
    return text_result(tool_result_text(answer), true);
  }
}

Json Session::call_with_progress(const std::string& name, const Json& arguments,
                                 const Json& params) {
  auto meta = params.find("_meta");
  const Json* token = nullptr;
  if (meta != params.end() && meta->is_object()) {
    auto it = meta->find("progressToken");
    if (it != meta->end() && (it->is_string() || it->is_number_integer())) token = &*it;
  }
  if (token == nullptr || !notify_) return host_.call_tool(name, arguments);
  // The progress of one token only ever grows.
  auto last = std::make_shared<std::int64_t>(-1);
  host_.report_progress([this, token = *token, last](std::int64_t done, std::int64_t total,
                                                     const std::string& message) {
    if (done <= *last) return;
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
  struct Stop {
    ToolHost& host;
    ~Stop() { host.report_progress({}); }
  } stop{host_};
  return host_.call_tool(name, arguments);
}

}  // namespace orvane_tamsel::server
