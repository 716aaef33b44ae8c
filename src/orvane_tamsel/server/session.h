#pragma once
// One MCP session: each input line in, at most one output line back. No I/O of its own, so the
// whole protocol can be driven without a process.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

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
  // Waits for what every call needs first (the first index); false when `stop` came first.
  virtual bool wait_until_ready(std::stop_token stop) {
    (void)stop;
    return true;
  }
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
  // A tool call accepted in its turn and run later, one at a time; gives its answer line, or none
  // when the call was cancelled.
  using Work = std::function<std::optional<std::string>()>;
  struct Accepted {
    std::optional<std::string> reply;  // to write at once
    Work work;                         // when set, to run on the thread that runs the tools
  };

  explicit Session(ToolHost& host, Notify notify = {}) : host_(host), notify_(std::move(notify)) {}

  // Everything but running a tool is done here, at once, in the order of the lines: so pings,
  // tools/list and cancellations are never kept waiting behind a tool call.
  Accepted accept(std::string_view line);
  // accept() and then its work: the whole session on one thread.
  std::optional<std::string> handle_line(std::string_view line);
  // The answer to a line longer than `limit` bytes, of which only `start` was kept.
  std::string oversized_line(std::string_view start, std::size_t limit) const;
  // Stops every tool call not yet answered (the server is going away).
  void cancel_all();

 private:
  // A reply now and/or a reply later, for one message.
  struct Outcome {
    std::optional<Json> reply;
    std::function<std::optional<Json>()> later;
  };
  Outcome handle_message(const Json& message);
  Outcome handle_request(const Json& message);
  Outcome handle_batch(const Json& batch);
  Json initialize(const Json& params);
  Outcome tools_call(const Json& id, const Json& params);
  std::optional<Json> run_tool(const Json& id, const std::string& name, const Json& arguments,
                               const Json& params, std::stop_token stop);
  void cancel(const Json& id);

  ToolHost& host_;
  Notify notify_;
  std::string protocol_version_;  // empty until initialize
  std::mutex calls_mutex_;
  // The tool calls accepted and not yet answered, by their id's JSON text.
  std::map<std::string, std::stop_source> calls_;
};

}  // namespace orvane_tamsel::server
