// The host tools from the shell, as a person or a script runs them: each answers exactly as the
// server does (the next steps of explore answers included, run as the printed commands), the
// index folder stays out of git, and `tamsel status` describes the index.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "faults/tamsel_process.h"
#include "indexer/temp_repo.h"
#include "orvane_tamsel/cli/tool_command_line.h"

namespace {

using Json = nlohmann::ordered_json;

struct Run {
  int status = -1;
  std::string out;
};

Run shell(const std::string& command) {
  Run run;
  FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
  char buffer[4096];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
  int status = ::pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

// The printed command of a call, run with the binary under test; JSON since stdout is a pipe.
Run cli(const std::string& tool, const Json& arguments, const std::string& repo) {
  auto command = orvane_tamsel::cli::tool_command(tool, arguments, repo);
  return shell(std::string(TAMSEL_BINARY) + command.substr(std::string("tamsel").size()));
}

struct Answer {
  std::string text;
  bool is_error = false;
};

Answer served(faults_test::Server& server, const std::string& tool, const Json& arguments) {
  Json params{{"name", tool}, {"arguments", arguments}};
  auto reply = Json::parse(server.request("\"tools/call\",\"params\":" + params.dump()));
  const auto& result = reply.at("result");
  return {result["content"][0]["text"].get<std::string>(), result["isError"].get<bool>()};
}

void same_answers(const std::string& fixture, std::vector<std::pair<std::string, Json>> calls) {
  indexer_test::TempRepo repo(fixture);
  faults_test::Server server(repo.repo());
  auto files = Json::parse(served(server, "files", Json::object()).text)["files"];
  ASSERT_FALSE(files.empty()) << fixture;
  calls.push_back({"explore", {{"query", files[0]}}});
  calls.push_back({"explore", {{"query", "how are the main entry points wired together"}}});
  calls.push_back({"explore", {{"query", "available tools"}}});
  for (std::size_t i = 0; i < calls.size(); ++i) {
    auto [tool, arguments] = calls[i];
    auto expected = served(server, tool, arguments);
    auto got = cli(tool, arguments, repo.repo());
    EXPECT_EQ(got.out, expected.text + "\n") << fixture << " " << tool << " " << arguments;
    EXPECT_EQ(got.status, expected.is_error ? 1 : 0) << tool << " " << arguments;
    // The steps an explore answer offers are commands that work as printed.
    auto answer = Json::parse(expected.text);
    if (tool != "explore" || !answer.contains("next_steps") || calls.size() > 40) continue;
    for (const auto& step : answer["next_steps"]) {
      Json args = step["arguments"];
      if (step["tool"] == "explore" && !args.contains("query")) args["query"] = "cart";
      if (step["tool"] == "context" && !args.contains("task")) args["task"] = "change the total";
      calls.push_back({step["tool"], args});
    }
  }
}

TEST(CommandLine, EveryToolAnswersAsTheServerDoes) {
  same_answers("shop", {
                           {"symbol", {{"action", "detail"}, {"fqn", "shop.cart.Cart.total"}}},
                           {"symbol", {{"action", "callers"}, {"fqn", "shop.cart.Cart.total"}}},
                           {"symbol", {{"fqn", "shop.cart.Cart"}, {"action", "references"}}},
                           {"symbol", {{"action", "detail"}, {"fqn", "no.such.thing"}}},
                           {"file", {{"path", "src/shop/cart.py"}}},
                           {"file", {{"action", "symbols"}, {"path", "src/shop/cart.py"}}},
                           {"file", {{"path", "../outside.py"}}},
                           {"files", {{"path", "src/shop"}, {"offset", 1}, {"limit", 2}}},
                           {"tests", {{"path", "src/shop/cart.py"}, {"token_budget", 40}}},
                           {"search", {{"query", "def \\w+total"}, {"regex", true}}},
                           {"search", {{"query", "it's a \"quoted\" $HOME"}}},
                           {"context", {{"task", "add a discount code"}}},
                           {"explore", {{"query", "Cart.total"}, {"depth", "deep"}}},
                           {"explore", {{"query", "tests for Cart"}, {"scope", "file"}}},
                           {"explore", {{"query", "Cart.totl"}}},
                           {"explore", {{"query", "the cart"}, {"token_budget", 30}}},
                       });
  for (const char* fixture : {"lang_go", "lang_ts", "lang_rust", "lang_mixed"}) {
    same_answers(fixture, {});
  }

  // A repository named relative to the working folder (the default `.`) reads an absolute path,
  // or one that starts with the repository's folder name, as the server does.
  indexer_test::TempRepo repo("shop");
  faults_test::Server server(repo.repo());
  auto name = repo.root().filename().string();
  for (std::string path : {repo.repo() + "/src/shop/cart.py", name + "/src/shop/cart.py"}) {
    auto expected = served(server, "explore", {{"query", path}});
    EXPECT_NE(expected.text.find("\"symbols\""), std::string::npos) << expected.text;
    auto got = shell("cd " + repo.repo() + " && " + TAMSEL_BINARY + " explore " + path);
    EXPECT_EQ(got.out, expected.text + "\n") << path;
    got = shell("cd " + repo.root().parent_path().string() + " && " + TAMSEL_BINARY +
                " explore --repo " + name + " " + path);
    EXPECT_EQ(got.out, expected.text + "\n") << path;
  }
  // A question typed without quotes is the same question.
  auto asked = served(server, "explore", {{"query", "how is the cart total computed"}});
  auto got = shell(std::string(TAMSEL_BINARY) + " explore how is the cart total computed --repo " +
                   repo.repo());
  EXPECT_EQ(got.out, asked.text + "\n");
}

TEST(CommandLine, MemoriesSavedFromTheShellAreTheServersAndArgumentsAreChecked) {
  indexer_test::TempRepo repo("shop");
  auto saved =
      cli("memory",
          {{"action", "save"}, {"title", "Prices"}, {"text", "in cents"}, {"tags", {"a", "b"}}},
          repo.repo());
  ASSERT_EQ(saved.status, 0) << saved.out;
  auto id = Json::parse(saved.out)["id"];
  faults_test::Server server(repo.repo());
  auto listed = served(server, "memory", {{"action", "list"}});
  EXPECT_EQ(cli("memory", Json::object(), repo.repo()).out, listed.text + "\n");
  EXPECT_NE(listed.text.find("\"tags\":[\"a\",\"b\"]"), std::string::npos) << listed.text;
  EXPECT_EQ(cli("memory", {{"action", "delete"}, {"id", id}}, repo.repo()).status, 0);
  EXPECT_EQ(served(server, "memory", {{"action", "delete"}, {"id", id}}).is_error, true);

  // Out of range or unknown: refused before anything is read, as the server refuses them.
  std::string tamsel = std::string(TAMSEL_BINARY) + " ";
  EXPECT_EQ(shell(tamsel + "explore --token-budget 0 cart --repo " + repo.repo()).status, 2);
  EXPECT_EQ(shell(tamsel + "symbol callees x --repo " + repo.repo()).status, 2);
  EXPECT_EQ(shell(tamsel + "files --limit 1001 --repo " + repo.repo()).status, 2);
  EXPECT_EQ(shell(tamsel + "tests --repo " + repo.repo()).status, 2);
  EXPECT_EQ(shell(tamsel + "files --repo " + repo.repo() + "/missing").status, 1);
}

TEST(CommandLine, TheIndexStaysOutOfGitAndStatusDescribesIt) {
  indexer_test::TempRepo repo("shop");
  std::string git = "git -C " + repo.repo() + " -c user.name=t -c user.email=t@example.com ";
  ASSERT_EQ(shell(git + "init -q && " + git + "add -A && " + git + "commit -qm fixture").status, 0);
  std::string tamsel = std::string(TAMSEL_BINARY) + " ";
  auto none = Json::parse(shell(tamsel + "status --repo " + repo.repo()).out);
  EXPECT_EQ(none["indexed"], false);
  shell(tamsel + "memory save --title t --text x --repo " + repo.repo());
  // The folder may be given bare, as most tools take it.
  ASSERT_EQ(shell(tamsel + "index --max-file-size 400 " + repo.repo()).status, 0);
  EXPECT_EQ(shell(git + "status --porcelain --untracked-files=all").out, "");

  auto status = Json::parse(shell(tamsel + "status --json " + repo.repo()).out);
  std::int64_t skipped = status["skipped"];
  EXPECT_GT(skipped, 0);
  EXPECT_EQ(status["files"].get<std::int64_t>() + skipped, 10);
  EXPECT_EQ(status["languages"], Json({{"python", status["files"]}}));
  EXPECT_EQ(status["skipped_by_reason"]["too large"], skipped);
  EXPECT_EQ(status["skipped_files"].size(), static_cast<std::size_t>(skipped));
  EXPECT_EQ(status["skipped_files"][0]["reason"], "too large");
  EXPECT_GT(status["index_bytes"].get<std::int64_t>(), 4096);
  EXPECT_TRUE(std::regex_match(status["last_update"].get<std::string>(),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
  // Asked for by path, a skipped file says why it is not there.
  repo.write("src/shop/latin.py", "name = '\xe9'\n");
  auto asked = Json::parse(shell(tamsel + "explore src/shop/latin.py --repo " + repo.repo()).out);
  EXPECT_EQ(asked["notes"], Json({"src/shop/latin.py is not indexed: not utf-8"})) << asked;
  auto missing = shell(tamsel + "file symbols src/shop/latin.py --repo " + repo.repo()).out;
  EXPECT_EQ(Json::parse(missing)["not_indexed"], "not utf-8") << missing;
}

}  // namespace
