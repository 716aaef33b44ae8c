#pragma once
// One MCP session: each input line in, at most one output line back. No I/O of its own, so the
// whole protocol can be driven without a process.

#include <cstdint>
#include <deque>
#include <functional>
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

  // Told how far the work a call waits for has come (the first index of the repository).
  using ProgressSink =
      std::function<void(std::int64_t done, std::int64_t total, const std::string& message)>;
  // The sink for the calls that follow, or an empty one to stop; the host may call it from
  // another thread, but never after it was replaced. Hosts without such work ignore it.
  virtual void report_progress(ProgressSink sink) { (void)sink; }
  // When the index was last brought up to date, as UTC text ("2026-01-31T12:00:00Z"); empty
  // while unknown.
  virtual std::string indexed_at() const { return {}; }
};

inline const std::vector<std::string> PROTOCOL_VERSIONS = {"2025-11-25", "2025-06-18", "2025-03-26",
                                                           "2024-11-05"};

inline constexpr const char* INSTRUCTIONS =
    "This server answers questions about the code of one repository from its index. Start with "
    "the explore tool: give it a question in words, a name in code, a path, or 'tests for X'. "
    "Each answer lists next steps that call the other tools with ready arguments; follow them "
    "rather than reading files one by one.";

// The key of a tool result's _meta that says when the index was last brought up to date.
inline constexpr const char* INDEXED_AT_META = "tamsel/indexed_at";

class Session {
 public:
  // Writes a notification line to the client, on any thread.
  using Notify = std::function<void(const std::string& line)>;

  explicit Session(ToolHost& host, Notify notify = {}) : host_(host), notify_(std::move(notify)) {}

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

  Json call_with_progress(const std::string& name, const Json& arguments, const Json& params);

  ToolHost& host_;
  Notify notify_;
  bool initialized_ = false;
  std::mutex cancel_mutex_;
  std::set<std::string> cancelled_;
  std::deque<std::string> cancel_order_;
};

}  // namespace orvane_tamsel::server
