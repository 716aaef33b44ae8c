// The file tool: the files around one file (imports, importers, calls, tests) or its symbols.

#include <algorithm>

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/client_text.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

namespace {

constexpr int MAX_ROWS = 200;

Json link_row(const index::FileLink& link) {
  Json row = Json::object();
  row["path"] = link.path;
  row["symbols"] = link.symbols;
  row["call_sites"] = link.call_sites;
  return row;
}

// The file's symbols in line order, modules left out: they stand for the file itself.
Json symbols_of(index::Repository& repository, const index::FileRecord& file,
                long long token_budget) {
  Json head = Json::object();
  head["path"] = file.path;
  head["language"] = file.language;
  if (file.is_test) head["is_test"] = true;
  head["symbols"] = Json::array();
  BudgetFit fit(std::move(head), token_budget);
  auto symbols = repository.get_symbols_by_file(*file.id);
  std::stable_sort(symbols.begin(), symbols.end(),
                   [](const auto& a, const auto& b) { return a.start_line < b.start_line; });
  for (const auto& symbol : symbols) {
    if (symbol.kind == "module") continue;
    Json row = Json::object();
    row["fqn"] = symbol.fqn;
    row["kind"] = symbol.kind;
    row["line"] = symbol.start_line;
    if (symbol.signature) row["signature"] = *symbol.signature;
    if (symbol.is_test) row["is_test"] = true;
    if (!fit.add("symbols", std::move(row))) break;
  }
  return fit.finish();
}

}  // namespace

Json file_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto given = arguments["path"].get<std::string>();
  const auto path = checked_path(repository.root(), given);
  auto file = path.empty() ? std::nullopt : repository.get_file_by_path(path);
  if (!file) {
    throw ToolError("the index holds no file '" + echoed(given) + "'",
                    path_suggestions(repository, path.empty() ? given : path));
  }
  if (arguments["action"].get<std::string>() == "symbols") {
    return symbols_of(repository, *file, arguments["token_budget"].get<long long>());
  }
  auto imports = repository.imports_of_file(path, MAX_ROWS + 1);
  auto importers = repository.importers_of_file(path, MAX_ROWS + 1);
  auto callees = repository.linked_files(path, index::CALLEE, MAX_ROWS + 1);
  auto callers = repository.linked_files(path, index::CALLER, MAX_ROWS + 1);
  auto tests = repository.get_tests_for(path);

  Json head = Json::object();
  head["path"] = path;
  head["language"] = file->language;
  if (file->is_test) head["is_test"] = true;
  head["imports"] = Json::array();
  head["imported_by"] = Json::array();
  head["calls_into"] = Json::array();
  head["called_from"] = Json::array();
  head["tests"] = Json::array();
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  bool capped = imports.size() > MAX_ROWS || importers.size() > MAX_ROWS ||
                callees.size() > MAX_ROWS || callers.size() > MAX_ROWS;
  if (capped) fit.mark_truncated();
  for (std::size_t i = 0; i < imports.size() && i < MAX_ROWS; ++i) {
    const auto& imp = imports[i];
    Json row = Json::object();
    row["line"] = imp.line;
    row["module"] = imp.module;
    if (!imp.name.empty()) row["name"] = imp.name;
    if (imp.target_path) row["path"] = *imp.target_path;
    fit.add("imports", std::move(row));
  }
  for (std::size_t i = 0; i < importers.size() && i < MAX_ROWS; ++i) {
    Json row = Json::object();
    row["path"] = importers[i].path;
    row["line"] = importers[i].line;
    if (!importers[i].name.empty()) row["name"] = importers[i].name;
    fit.add("imported_by", std::move(row));
  }
  for (std::size_t i = 0; i < callees.size() && i < MAX_ROWS; ++i) {
    fit.add("calls_into", link_row(callees[i]));
  }
  for (std::size_t i = 0; i < callers.size() && i < MAX_ROWS; ++i) {
    fit.add("called_from", link_row(callers[i]));
  }
  for (auto& row : test_rows(tests)) fit.add("tests", std::move(row));
  return fit.finish();
}

}  // namespace orvane_tamsel::tool_handlers
