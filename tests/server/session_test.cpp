// The protocol, driven line by line without a process.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "orvane_tamsel/server/framing.h"
#include "orvane_tamsel/server/session.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::server {
namespace {

class EchoHost : public ToolHost {
 public:
  Json call_tool(const std::string& name, const Json& arguments) override {
    if (arguments.value("query", "") == "boom") throw std::runtime_error("disk on fire");
    if (arguments.value("query", "") == "missing") throw tool_handlers::ToolError("nothing here");
    return Json{{"tool", name}, {"arguments", arguments}};
  }
};

Json reply(Session& s, const std::string& line) {
  auto out = s.handle_line(line);
  EXPECT_TRUE(out.has_value()) << line;
  EXPECT_EQ(out->find('\n'), std::string::npos);
  return out ? Json::parse(*out) : Json();
}

int code_of(Session& s, const std::string& line) {
  auto r = reply(s, line);
  return r.contains("error") ? r["error"]["code"].get<int>() : 0;
}

Json call(Session& s, const Json& params, int id = 9) {
  return reply(
      s, Json{{"jsonrpc", "2.0"}, {"id", id}, {"method", "tools/call"}, {"params", params}}.dump());
}

const char* INIT =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
    R"("capabilities":{},"clientInfo":{"name":"t","version":"1"}}})";

TEST(Session, BadMessagesGetTheirErrorAndTheNextRequestIsAnswered) {
  EchoHost host;
  Session s(host);
  EXPECT_EQ(code_of(s, "{not json"), -32700);
  EXPECT_TRUE(reply(s, "{not json")["id"].is_null());
  EXPECT_EQ(code_of(s, "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\",\"x\":\"\xff\xfe\"}"),
            -32700);
  EXPECT_EQ(code_of(s, R"({"n":1999999999999999999999E99999999999999999999})"), -32700);
  EXPECT_EQ(code_of(s, "[]"), -32600);
  EXPECT_EQ(code_of(s, "42"), -32600);
  EXPECT_EQ(code_of(s, R"({"id":1,"method":"ping"})"), -32600);
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":{"a":1},"method":"ping"})"), -32600);
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":3,"method":7})"), -32600);
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":3,"method":"resources/list"})"), -32601);
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":3,"method":"tools/list"})"), -32600);
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":3,"method":"initialize","params":{}})"), -32602);
  // An oversized line is answered with its id when its start holds one at the top level.
  auto cut = [&](const std::string& start) {
    auto r = Json::parse(s.oversized_line(start, 10));
    EXPECT_EQ(r["error"]["code"], -32600);
    return r["id"];
  };
  EXPECT_EQ(cut(R"({"jsonrpc":"2.0","id":"big-1","method":"tools/call","params":{"argum)"),
            "big-1");
  EXPECT_EQ(cut(R"({"params":{"id":5,"q":[1,{"id":6}]},"id":7,"meth)"), 7);
  EXPECT_TRUE(cut(R"({"params":{"id":5},"method":"tools/call","params":{"arg)").is_null());
  EXPECT_TRUE(cut(R"({"id":[1,2],"method")").is_null());
  EXPECT_TRUE(cut(R"({"id":12)").is_null());  // the number may go on
  EXPECT_EQ(cut(R"({"id":"12)"), nullptr);
  EXPECT_EQ(cut(R"({"id":"12","x)"), "12");
  EXPECT_TRUE(cut("[[[[[[[[[[[[[[").is_null());
  EXPECT_EQ(code_of(s, R"({"jsonrpc":"2.0","id":3,"method":"ping","params":{"a":)" +
                           std::string(100000, '[') + std::string(100000, ']') + "}}"),
            -32600);
  EXPECT_EQ(
      code_of(
          s,
          R"({"jsonrpc":"2.0","id":3,"method":"ping","params":{"a":"[[[[[[[[[[[[[[[[)"
          R"([[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[\""}})"),
      0);
  // Pings work before initialize; ids are echoed as sent.
  EXPECT_EQ(reply(s, R"({"jsonrpc":"2.0","id":"a-1","method":"ping"})")["id"], "a-1");
  auto init = reply(s, INIT)["result"];
  EXPECT_EQ(init["protocolVersion"], "2025-06-18");
  EXPECT_EQ(init["capabilities"]["tools"]["listChanged"], false);
  EXPECT_NE(init["instructions"].get<std::string>().find("explore"), std::string::npos);
  // initialize comes once: a second one would change the session under the client's feet.
  auto again = reply(s, INIT);
  EXPECT_EQ(again["error"]["code"], -32600);
  EXPECT_NE(again["error"]["message"].get<std::string>().find("already initialized"),
            std::string::npos);
  Session other(host);
  auto newest = reply(other, R"({"jsonrpc":"2.0","id":2,"method":"initialize",)"
                             R"("params":{"protocolVersion":"1999-01-01"}})");
  EXPECT_EQ(newest["result"]["protocolVersion"], PROTOCOL_VERSIONS.front());
  EXPECT_FALSE(s.handle_line(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"));
  EXPECT_FALSE(s.handle_line(R"({"jsonrpc":"2.0","method":"no/such/notification"})"));
  EXPECT_FALSE(s.handle_line(R"({"jsonrpc":"2.0","id":5,"result":{}})"));
  EXPECT_EQ(reply(s, R"({"jsonrpc":"2.0","id":3,"method":"ping"})")["result"], Json::object());
}

TEST(Session, ToolsListIsTheRegistryWithFullSchemas) {
  EchoHost host;
  Session s(host);
  reply(s, INIT);
  auto tools = reply(s, R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})")["result"]["tools"];
  ASSERT_EQ(tools.size(), TOOLS.size());
  EXPECT_EQ(tools[0]["name"], "explore");
  auto props = tools[0]["inputSchema"]["properties"];
  EXPECT_EQ(props["depth"]["enum"], Json({"quick", "standard", "deep"}));
  EXPECT_EQ(props["token_budget"]["minimum"], 1);
  EXPECT_EQ(props["token_budget"]["maximum"], 20000);
  EXPECT_EQ(props["token_budget"]["default"], 2000);
  EXPECT_EQ(tools[0]["inputSchema"]["required"], Json({"query"}));
  EXPECT_EQ(tools[0]["annotations"]["readOnlyHint"], true);
  EXPECT_FALSE(tools.back().contains("annotations"));  // memory writes
}

TEST(Session, ToolCallsCheckTheirArguments) {
  EchoHost host;
  Session s(host);
  reply(s, INIT);
  auto ok =
      call(s, {{"name", "explore"}, {"arguments", {{"query", "cart"}, {"token_budget", 50.0}}}});
  EXPECT_EQ(ok["result"]["isError"], false);
  auto echoed = Json::parse(ok["result"]["content"][0]["text"].get<std::string>());
  EXPECT_EQ(
      echoed["arguments"],
      Json({{"query", "cart"}, {"scope", "module"}, {"depth", "standard"}, {"token_budget", 50}}));
  auto code = [&](const Json& params) {
    auto r = call(s, params);
    return r.contains("error") ? r["error"]["code"].get<int>() : 0;
  };
  EXPECT_EQ(code({{"name", "nope"}}), -32602);
  EXPECT_EQ(code({{"arguments", Json::object()}}), -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", Json::object()}}), -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", {{"query", 3}}}}), -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", {{"query", "a"}, {"token_budget", "9"}}}}),
            -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", {{"query", "a"}, {"token_budget", 1.5}}}}),
            -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", {{"query", "a"}, {"colour", "red"}}}}),
            -32602);
  EXPECT_EQ(code({{"name", "explore"}, {"arguments", "query"}}), -32602);
  // Values out of range, or failures inside a tool, are results the model reads.
  for (const Json& args :
       {Json{{"query", "a"}, {"token_budget", 0}}, Json{{"query", "a"}, {"token_budget", 1e12}},
        Json{{"query", "a"}, {"depth", "bottomless"}},
        Json{{"query", std::string(tool_handlers::MAX_TEXT_ARGUMENT + 1, 'q')}},
        Json{{"query", "boom"}}, Json{{"query", "missing"}}}) {
    auto r = call(s, {{"name", "explore"}, {"arguments", args}});
    ASSERT_TRUE(r.contains("result")) << r.dump();
    EXPECT_EQ(r["result"]["isError"], true);
    EXPECT_TRUE(
        Json::parse(r["result"]["content"][0]["text"].get<std::string>()).contains("error"));
  }
}

TEST(Session, ABatchIsAnsweredAsOneArrayOnceItsToolCallsAre) {
  EchoHost host;
  Session s(host);
  reply(s, INIT);
  auto batch =
      s.accept(R"([{"jsonrpc":"2.0","id":1,"method":"ping"},7,)"
               R"({"jsonrpc":"2.0","method":"notifications/initialized"},)"
               R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"files"}},)"
               R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"nope"}}])");
  ASSERT_FALSE(batch.reply.has_value());  // waits for its tool call
  ASSERT_TRUE(batch.work);
  auto answers = Json::parse(*batch.work());
  ASSERT_EQ(answers.size(), 4U);
  std::vector<std::string> got;
  for (const auto& a : answers)
    got.push_back(a["id"].dump() + ":" + (a.contains("error") ? a["error"]["code"].dump() : "ok"));
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, (std::vector<std::string>{"1:ok", "2:ok", "3:-32602", "null:-32600"}));
  EXPECT_FALSE(s.handle_line(R"([{"jsonrpc":"2.0","method":"notifications/initialized"}])"));
}

// Blocks every call until it is stopped, reporting progress as the first index would.
class WaitingHost : public ToolHost {
 public:
  Json call_tool(const std::string&, const Json&) override { return Json{{"ran", true}}; }
  bool wait_until_ready(std::stop_token stop) override {
    std::unique_lock lock(mutex);
    waiting = true;
    changed.notify_all();
    if (sink) sink(1, 10, "indexing");
    return changed.wait(lock, stop, [&] { return ready; });
  }
  void report_progress(ProgressSink s) override {
    std::lock_guard lock(mutex);
    sink = std::move(s);
  }
  void tell_progress() {
    std::lock_guard lock(mutex);
    if (sink) sink(5, 10, "indexing");
  }
  std::mutex mutex;
  std::condition_variable_any changed;
  bool waiting = false, ready = false;
  ProgressSink sink;
};

TEST(Session, OnlyToolsWaitForTheIndexAndACancelledCallStopsWaiting) {
  WaitingHost host;
  std::atomic<int> notes = 0;
  Session s(host, [&](const std::string&) { ++notes; });
  reply(s, INIT);
  auto call = s.accept(R"({"jsonrpc":"2.0","id":"c1","method":"tools/call","params":)"
                       R"({"name":"files","_meta":{"progressToken":"p"}}})");
  ASSERT_TRUE(call.work);
  std::optional<std::string> answer = "unset";
  std::thread worker([&] { answer = call.work(); });
  {
    std::unique_lock lock(host.mutex);
    host.changed.wait(lock, [&] { return host.waiting; });
  }
  // Answered here and now, with the call still waiting.
  EXPECT_EQ(reply(s, R"({"jsonrpc":"2.0","id":2,"method":"ping"})")["result"], Json::object());
  EXPECT_EQ(reply(s, R"({"jsonrpc":"2.0","id":3,"method":"tools/list"})")["result"]["tools"].size(),
            TOOLS.size());
  EXPECT_EQ(reply(s, R"({"jsonrpc":"2.0","id":"c1","method":"tools/call","params":)"
                     R"({"name":"files"}})")["error"]["code"],
            -32600);  // its id is in use
  EXPECT_EQ(notes, 1);
  EXPECT_FALSE(s.handle_line(
      R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":"c1"}})"));
  host.tell_progress();  // between the cancellation and the end of the wait: not told
  worker.join();
  EXPECT_FALSE(answer.has_value());
  EXPECT_EQ(notes, 1);
  EXPECT_FALSE(host.sink);
  // The id is free again; a cancellation of an answered call changes nothing.
  host.ready = true;
  EXPECT_TRUE(s.handle_line(R"({"jsonrpc":"2.0","id":"c1","method":"tools/call","params":)"
                            R"({"name":"files"}})"));
  EXPECT_FALSE(s.handle_line(
      R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":"c1"}})"));
  EXPECT_TRUE(s.handle_line(R"({"jsonrpc":"2.0","id":"c1","method":"ping"})"));
}

TEST(LineSplitter, SplitsLinesAndSkipsOversizedOnesWithoutLosingTheNext) {
  std::vector<std::string> lines;
  int oversized = 0;
  std::string start;
  LineSplitter split([&](std::string&& l) { lines.push_back(l); },
                     [&](std::string&& s) {
                       ++oversized;
                       start = s;
                     },
                     8);
  split.feed("ab\r\n\n  \ncd");
  split.feed("ef\n0123456789");
  split.feed("0123\nok\nlast");
  split.finish();
  EXPECT_EQ(lines, (std::vector<std::string>{"ab", "cdef", "ok", "last"}));
  EXPECT_EQ(oversized, 1);
  EXPECT_EQ(start, "0123456789");
}

// Reports work in steps while a call waits, one of them going backwards.
class ProgressHost : public ToolHost {
 public:
  Json call_tool(const std::string&, const Json&) override {
    for (auto [done, total] : {std::pair{0, 0}, {5, 10}, {3, 10}, {10, 10}}) {
      if (sink) sink(done, total, "indexing");
    }
    return Json{{"ok", true}};
  }
  void report_progress(ProgressSink s) override { sink = std::move(s); }
  std::string indexed_at() const override { return "2026-01-31T12:00:00Z"; }
  ProgressSink sink;
};

TEST(Session, ACallWithAProgressTokenHearsHowTheIndexGrowsAndWhenItWasUpdated) {
  ProgressHost host;
  std::vector<Json> notes;
  Session s(host, [&](const std::string& line) { notes.push_back(Json::parse(line)); });
  reply(s, INIT);
  for (const Json& token : {Json("t-1"), Json(7)}) {
    notes.clear();
    auto r = call(
        s,
        {{"name", "files"}, {"arguments", Json::object()}, {"_meta", {{"progressToken", token}}}});
    EXPECT_EQ(r["result"]["_meta"][INDEXED_AT_META], "2026-01-31T12:00:00Z");
    ASSERT_EQ(notes.size(), 3U);  // the step backwards is not sent
    std::vector<int> progress;
    for (const auto& n : notes) {
      EXPECT_EQ(n["method"], "notifications/progress");
      EXPECT_FALSE(n.contains("id"));
      EXPECT_EQ(n["params"]["progressToken"], token);
      progress.push_back(n["params"]["progress"].get<int>());
    }
    EXPECT_EQ(progress, (std::vector<int>{0, 5, 10}));
    EXPECT_FALSE(notes[0]["params"].contains("total"));
    EXPECT_EQ(notes[1]["params"]["total"], 10);
    EXPECT_FALSE(host.sink);  // nothing is reported once the call is answered
  }
  notes.clear();
  call(s, {{"name", "files"}, {"arguments", Json::object()}});
  call(s, {{"name", "files"}, {"_meta", {{"progressToken", Json::array()}}}});
  EXPECT_TRUE(notes.empty());
}

}  // namespace
}  // namespace orvane_tamsel::server
