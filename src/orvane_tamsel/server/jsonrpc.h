#pragma once
// JSON-RPC 2.0 messages as the server writes them.

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::server {

using Json = nlohmann::ordered_json;

inline constexpr int PARSE_ERROR = -32700;
inline constexpr int INVALID_REQUEST = -32600;
inline constexpr int METHOD_NOT_FOUND = -32601;
inline constexpr int INVALID_PARAMS = -32602;
inline constexpr int INTERNAL_ERROR = -32603;

Json result_message(const Json& id, Json result);
Json error_message(const Json& id, int code, const std::string& message);
// The "id" of the object that `start` begins, read from as much of it as there is (a message cut
// short); null when the part holds no "id" at its top level.
Json leading_id(std::string_view start);
// One line of the wire: compact, no raw newline, invalid UTF-8 replaced.
std::string wire_text(const Json& message);

}  // namespace orvane_tamsel::server
