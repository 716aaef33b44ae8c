#pragma once
// One MCP session: each input line in, at most one output line back. No I/O of its own, so the
// whole protocol can be driven without a process.

#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::server {

using Json = nlohmann::ordered_json;

// Runs the tools for a session; the host owns the repository and keeps it fresh.
class ToolHost {
 public:
  virtual ~ToolHost() = default;
  // The answer of a tool on checked arguments; throws tool_handlers::ToolError for a failure the
  // client can fix. Any other exception is reported as a failure of the tool.
  virtual Json call_tool(const std::string& name, const Json& arguments) = 0;
};

inline const std::vector<std::string> PROTOCOL_VERSIONS = {"2025-11-25", "2025-06-18", "2025-03-26",
                                                           "2024-11-05"};

inline constexpr const char* INSTRUCTIONS =
    "This server answers questions about the code of one repository from its index. Start with "
    "the explore tool: give it a question in words, a name in code, a path, or 'tests for X'. "
    "Each answer lists next steps that call the other tools with ready arguments; follow them "
    "rather than reading files one by one.";

class Session {
 public:
  explicit Session(ToolHost& host) : host_(host) {}

  std::optional<std::string> handle_line(std::string_view line);
  // The answer to a line longer than `limit` bytes, which is never parsed.
  std::string oversized_line(std::size_t limit) const;
  // Marks a request as cancelled; safe from another thread while a request runs.
  void cancel(const Json& id);
  // Notes the cancellation a line carries, if it is one, ahead of its turn; safe from another
  // thread. The line is still handled in order afterwards.
  void note_cancel(std::string_view line);

 private:
  std::optional<Json> handle_request(const Json& message);
  Json initialize(const Json& params);
  Json tools_call(const Json& id, const Json& params);
  bool take_cancelled(const Json& id);

  ToolHost& host_;
  bool initialized_ = false;
  std::mutex cancel_mutex_;
  std::set<std::string> cancelled_;
  std::deque<std::string> cancel_order_;
};

}  // namespace orvane_tamsel::server
