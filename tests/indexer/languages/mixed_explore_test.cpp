// A repository of Python, TypeScript and C++ side by side, indexed and asked through `tamsel
// explore`.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <set>
#include <string>

#include <nlohmann/json.hpp>
#include "indexer/temp_repo.h"

namespace {

using Json = nlohmann::ordered_json;

Json explore(const indexer_test::TempRepo& repo, const std::string& query) {
  std::string command = std::string(TAMSEL_BINARY) + " explore --repo '" + repo.root().string() +
                        "' '" + query + "' 2>/dev/null";
  FILE* pipe = ::popen(command.c_str(), "r");
  std::string out;
  char buffer[4096];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  EXPECT_EQ(WEXITSTATUS(::pclose(pipe)), 0) << query;
  return Json::parse(out);
}

std::set<std::string> fqns(const Json& rows) {
  std::set<std::string> out;
  for (const auto& r : rows) out.insert(r["fqn"].get<std::string>());
  return out;
}

TEST(MixedLanguages, ExploreAnswersFromEveryLanguage) {
  indexer_test::TempRepo repo("lang_mixed");

  Json view = explore(repo, "CartView");
  EXPECT_EQ(view["route"], "identifier");
  ASSERT_FALSE(view["symbols"].empty());
  EXPECT_EQ(view["symbols"][0]["fqn"], "cart.view.CartView");
  EXPECT_EQ(view["symbols"][0]["file"], "web/src/cart/view.ts");
  EXPECT_TRUE(fqns(view["callers"]).count("cart.view.test.CartView.renders_the_total"));
  EXPECT_EQ(view["components"][0]["name"], "web") << "the project holding the source root";

  // one question, answered from the Python server and the TypeScript front end
  auto discount = fqns(explore(repo, "how is the discount applied to a total")["symbols"]);
  EXPECT_TRUE(discount.count("server.pricing.apply_discount"));
  EXPECT_TRUE(discount.count("cart.format.formatTotal"));

  Json checksum = explore(repo, "receipt_checksum");
  ASSERT_FALSE(checksum["symbols"].empty());
  EXPECT_EQ(checksum["symbols"][0]["fqn"], "native.receipt_checksum");
  EXPECT_EQ(checksum["symbols"][0]["kind"], "function");
  EXPECT_EQ(checksum["symbols"][0]["file"], "native/src/checksum.cpp");
}

}  // namespace
