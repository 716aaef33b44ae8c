#pragma once
// The host's tools by name: argument checking and the dispatch to one handler per tool.

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/index/memories.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/tool_registry.h"
#include "orvane_tamsel/workers/retriever.h"

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

// A failure the client can fix (a bad value, nothing found): answered as a tool result with
// isError. `details` are merged into the error text, e.g. did_you_mean.
class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& message, Json details = Json::object())
      : std::runtime_error(message), details(std::move(details)) {}
  Json details;
};

// Arguments missing or of the wrong JSON type: a protocol error (invalid params).
class InvalidArguments : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the tools read. `explore` is bound by the host so that the explore call lives in one place.
struct ToolContext {
  index::Repository& repository;
  workers::Retriever* retriever = nullptr;  // the context tool needs one
  index::Memories* memories = nullptr;      // null: the memory tool says they are not available
  std::function<Json(const Json& arguments)> explore;
};

// Longest text argument accepted, in bytes.
inline constexpr std::size_t MAX_TEXT_ARGUMENT = 65536;

// The arguments with defaults filled in. Throws InvalidArguments for a missing required argument,
// an unknown name or a wrong type, ToolError for a value out of range or not in the enumeration.
Json checked_arguments(const ToolDescription& tool, const Json& arguments);

// Runs a tool on checked arguments; its answer, or throws ToolError.
Json call_tool(const std::string& name, const Json& arguments, ToolContext& context);

// A client's text as an error message repeats it: cut to a readable length.
std::string echoed(const std::string& text);

// The text of an isError result.
Json error_answer(const ToolError& error);

Json context_tool(const Json& arguments, ToolContext& context);
Json symbol_tool(const Json& arguments, ToolContext& context);
Json file_tool(const Json& arguments, ToolContext& context);
Json files_tool(const Json& arguments, ToolContext& context);
Json tests_tool(const Json& arguments, ToolContext& context);
Json search_tool(const Json& arguments, ToolContext& context);
Json memory_tool(const Json& arguments, ToolContext& context);

}  // namespace orvane_tamsel::tool_handlers
