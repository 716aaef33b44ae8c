// What the server must never do: read outside its repository, let a memory pass for a fact,
// run a program or touch the network.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/server/session.h"

namespace {

namespace fs = std::filesystem;
using namespace orvane_tamsel;
using Json = nlohmann::ordered_json;

const std::string SECRET = "TOPSECRET_outside_marker";

// A copy of the serve_shop fixture next to a folder it must not read, joined by symlinks.
class Sandbox {
 public:
  Sandbox() {
    char tmpl[] = "/tmp/tamsel-security-XXXXXX";
    top_ = ::mkdtemp(tmpl);
    fs::copy(fs::path(TAMSEL_TEST_DATA) / "serve_shop", repo(), fs::copy_options::recursive);
    fs::create_directories(outside());
    std::ofstream(outside() / "secret.py") << "def " << SECRET << "():\n    return 1\n";
    std::ofstream(outside() / "test_secret.py") << "# " << SECRET << "\n";
    fs::create_symlink(outside() / "secret.py", repo() / "shop" / "escape.py");
    fs::create_directory_symlink(outside(), repo() / "shop" / "out");
    fs::create_directory_symlink("../../outside", repo() / "tests" / "up");
  }
  ~Sandbox() {
    std::error_code ec;
    fs::remove_all(top_, ec);
  }
  fs::path repo() const { return top_ / "repo"; }
  fs::path outside() const { return top_ / "outside"; }

 private:
  fs::path top_;
};

// Drives a Session line by line and gives each answer's text.
struct Client {
  server::LiveHost host;
  server::Session session{host};
  int id = 0;
  explicit Client(const fs::path& root) : host(root) {
    host.start();
    session.handle_line(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{}})");
    session.handle_line(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
  }
  std::string call(const std::string& tool, const Json& args) {
    Json req = {{"jsonrpc", "2.0"},
                {"id", ++id},
                {"method", "tools/call"},
                {"params", {{"name", tool}, {"arguments", args}}}};
    auto line = session.handle_line(req.dump());
    return line.value_or("");
  }
  Json answer(const std::string& tool, const Json& args) {
    auto reply = Json::parse(call(tool, args));
    return Json::parse(reply["result"]["content"][0]["text"].get<std::string>());
  }
};

TEST(Security, NoToolReadsOrListsOutsideTheRepository) {
  Sandbox box;
  Client client(box.repo());
  const std::string out = box.outside().string();
  const std::vector<std::string> paths = {"../outside/secret.py",
                                          "../../outside",
                                          out + "/secret.py",
                                          out,
                                          "shop/escape.py",
                                          "shop/out/secret.py",
                                          "shop/out",
                                          "tests/up",
                                          "tests/up/test_secret.py",
                                          "shop/../../outside/secret.py",
                                          "..\\outside\\secret.py",
                                          "shop/./../../outside",
                                          std::string("shop/cart.py\0/../../outside/secret.py", 37),
                                          "/" + std::string(5000, 'a'),
                                          std::string(300, 'x') + "/../../outside",
                                          "~/../outside",
                                          "file://" + out + "/secret.py"};
  for (const auto& p : paths) {
    for (const auto& [tool, args] : std::vector<std::pair<std::string, Json>>{
             {"file", {{"action", "related"}, {"path", p}}},
             {"file", {{"action", "symbols"}, {"path", p}}},
             {"files", {{"path", p}}},
             {"tests", {{"action", "for_file"}, {"path", p}}},
             {"explore", {{"query", p}, {"scope", "project"}, {"depth", "deep"}}},
             {"explore", {{"query", "tests for " + p}}},
             {"context", {{"action", "task"}, {"task", "change " + p}}}}) {
      auto text = client.call(tool, args);
      EXPECT_FALSE(text.empty()) << tool << " " << p;
      EXPECT_EQ(text.find(SECRET), std::string::npos) << tool << " " << p << ": " << text;
      EXPECT_EQ(text.find("test_secret"), std::string::npos) << tool << " " << p;
    }
  }
  for (const auto& q : {SECRET, std::string("TOPSECRET"), std::string("outside_marker")}) {
    EXPECT_EQ(client.call("search", {{"action", "code"}, {"query", q}}).find(SECRET),
              std::string::npos);
    EXPECT_EQ(client.call("explore", {{"query", q}}).find(SECRET), std::string::npos);
  }
  auto all = client.call("files", {{"limit", 1000}});
  EXPECT_EQ(all.find("escape.py"), std::string::npos) << all;
  EXPECT_EQ(all.find("out/"), std::string::npos) << all;
}

// Output of `strace -f -e trace=network,execve` over a short session, or "" when not possible.
std::string traced_session(const fs::path& repo, std::string& why) {
  if (std::system("strace -V >/dev/null 2>&1") != 0) {
    why = "strace is not installed";
    return "";
  }
  auto log = repo.parent_path() / "strace.log";
  auto input = repo.parent_path() / "input.jsonl";
  std::ofstream(input)
      << R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{}})"
         "\n"
      << R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
         "\n"
      << R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"explore","arguments":{"query":"cart total"}}})"
         "\n"
      << R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"search","arguments":{"action":"code","query":"total"}}})"
         "\n"
      << R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"files","arguments":{}}})"
         "\n";
  std::string cmd = "strace -f -qq -e trace=network,execve -o '" + log.string() + "' '" +
                    TAMSEL_BINARY + "' serve --repo '" + repo.string() + "' < '" + input.string() +
                    "' > /dev/null 2>&1";
  int rc = std::system(cmd.c_str());
  std::ifstream in(log);
  std::stringstream text;
  text << in.rdbuf();
  if (rc != 0 && text.str().find("Operation not permitted") != std::string::npos) {
    why = "ptrace is not permitted here";
    return "";
  }
  if (text.str().empty()) why = "strace produced no trace (exit " + std::to_string(rc) + ")";
  return text.str();
}

TEST(Security, ServeRunsNoProgramAndOpensNoSocket) {
  Sandbox box;
  std::string why;
  auto trace = traced_session(box.repo(), why);
  if (trace.empty()) GTEST_SKIP() << why;
  int execs = 0;
  std::istringstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("execve(") != std::string::npos) ++execs;
    for (const char* call : {"socket(", "connect(", "bind(", "listen(", "accept", "sendto(",
                             "recvfrom(", "socketpair("}) {
      EXPECT_EQ(line.find(call), std::string::npos) << line;
    }
  }
  EXPECT_EQ(execs, 1) << "only its own start:\n" << trace;
}

}  // namespace
