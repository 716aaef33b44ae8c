// The context tool: a pack for a coding task: relevant symbols with source, callers and tests.

#include <map>
#include <set>

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/utils/query_terms.h"

namespace orvane_tamsel::tool_handlers {

namespace {

constexpr int MAX_SYMBOLS = 8;
constexpr int MAX_CALLERS = 5;
constexpr std::size_t MAX_TESTS = 3;
constexpr std::int64_t MAX_SOURCE_LINES = 40;

}  // namespace

Json context_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto task = arguments["task"].get<std::string>();
  auto terms = utils::query_terms(task);
  if (terms.empty()) {
    throw ToolError("the task has no words to search the code for",
                    Json{{"hint",
                          "describe the task in words, e.g. 'add a discount to the cart "
                          "total'"}});
  }
  if (context.retriever == nullptr) throw std::logic_error("the context tool needs a retriever");
  auto result = context.retriever->retrieve(task, MAX_SYMBOLS, utils::is_test_query(terms), true);
  std::vector<index::SymbolId> ids;
  for (const auto& hit : result.hits) ids.push_back(hit.symbol.id);
  auto symbols = repository.symbols_with_paths(ids);

  std::map<index::SymbolId, std::vector<std::string>> callers_of;
  for (const auto& n :
       repository.evidence_neighbours(ids, index::TestFilter::exclude, MAX_CALLERS * MAX_SYMBOLS,
                                      std::vector<index::Relation>{index::CALLER})) {
    auto& list = callers_of[n.of];
    if (n.fqn && list.size() < MAX_CALLERS) list.push_back(*n.fqn);
  }

  Json files = Json::array();
  std::set<std::string> seen_files;
  std::map<std::string, Json> tests_of;
  for (auto id : ids) {
    auto it = symbols.find(id);
    if (it == symbols.end()) continue;
    const auto& path = it->second.second;
    if (seen_files.insert(path).second) {
      files.push_back(path);
      Json tests = Json::array();
      for (const auto& t : repository.get_tests_for(path).tests) {
        if (tests.size() >= MAX_TESTS) break;
        tests.push_back(t.path);
      }
      tests_of[path] = std::move(tests);
    }
  }

  Json head = Json::object();
  head["task"] = echoed(task);
  head["files_to_read"] = std::move(files);
  if (auto note = retrieval_note(result)) head["note"] = *note;
  head["symbols"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  for (auto id : ids) {
    auto it = symbols.find(id);
    if (it == symbols.end()) continue;
    const auto& [symbol, path] = it->second;
    Json row = Json::object();
    row["fqn"] = symbol.fqn;
    row["kind"] = symbol.kind;
    row["path"] = path;
    row["lines"] = Json::array({symbol.start_line, symbol.end_line});
    if (symbol.signature && !symbol.signature->empty()) row["signature"] = *symbol.signature;
    if (!callers_of[id].empty()) row["callers"] = callers_of[id];
    if (!tests_of[path].empty()) row["tests"] = tests_of[path];
    auto last = std::min(symbol.end_line, symbol.start_line + MAX_SOURCE_LINES - 1);
    std::string source;
    for (const auto& line : read_lines(repository.root(), path, symbol.start_line, last)) {
      source += (source.empty() ? "" : "\n") + line;
    }
    if (last < symbol.end_line) source += "\n...";
    row["source"] = std::move(source);
    if (!fit.add("symbols", std::move(row))) break;
  }
  return fit.finish();
}

}  // namespace orvane_tamsel::tool_handlers
