// The symbol tool: one symbol by fully qualified name: its definition, its callers, its references.

#include <map>
#include <set>

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/workers/name_lookup.h"

namespace orvane_tamsel::tool_handlers {

namespace {

// Most call sites or references read for one symbol.
constexpr int MAX_SITES = 500;
constexpr int MAX_MENTIONS = 50;
// Symbols of the same name read when a qualified name is not found as written.
constexpr int MAX_NAMESAKES = 50;

struct Found {
  index::Symbol symbol;
  std::string path;
};

Found find_symbol(index::Repository& repository, const std::string& given) {
  auto fqn = workers::dotted(given);
  auto symbol = repository.get_symbol_by_fqn(fqn);
  if (!symbol || !symbol->id) {
    // written with the inline namespaces a compiler prints (`std::__cxx11::basic_string`)
    auto named = repository.search_symbols({workers::guessed_name(given)}, true, MAX_NAMESAKES);
    for (auto& s : named.symbols) {
      if (workers::names_through_inline_scopes(fqn, s.fqn)) {
        symbol = std::move(s);
        break;
      }
    }
  }
  if (!symbol || !symbol->id) {
    Json details = Json::object();
    // The names explore would suggest for the same miss.
    Json names = suggest_symbols(Json::object(), repository, given, "detail")["did_you_mean"];
    if (!names.empty()) details["did_you_mean"] = std::move(names);
    details["hint"] =
        "give a fully qualified name as explore lists it, e.g. package.module.Class.method";
    throw ToolError("no symbol '" + echoed(given) + "' in the index", std::move(details));
  }
  auto paths = repository.get_file_paths_batch({*symbol});
  return {*symbol, paths.count(*symbol->id) ? paths[*symbol->id] : std::string()};
}

Json lines_of(std::int64_t start, std::int64_t end) {
  return Json::array({start, end});
}

Json detail(index::Repository& repository, const Found& found, long long budget) {
  const auto& s = found.symbol;
  Json head = Json::object();
  head["fqn"] = s.fqn;
  head["kind"] = s.kind;
  head["path"] = found.path;
  head["lines"] = lines_of(s.start_line, s.end_line);
  if (s.signature && !s.signature->empty()) head["signature"] = *s.signature;
  if (s.docstring && !s.docstring->empty()) head["docstring"] = *s.docstring;
  head["source"] = "";
  BudgetFit fit(std::move(head), budget);
  for (const auto& line : read_lines(repository.root(), found.path, s.start_line, s.end_line)) {
    if (!fit.add_line("source", line)) break;
  }
  return fit.finish();
}

Json callers(index::Repository& repository, const Found& found, long long budget) {
  auto sites = repository.call_sites(*found.symbol.id, index::CALLER, MAX_SITES + 1);
  bool capped = sites.size() > MAX_SITES;
  if (capped) sites.resize(MAX_SITES);
  // One row per caller, its call sites' lines in order.
  std::vector<Json> rows;
  std::map<std::string, std::size_t> row_of;
  for (const auto& site : sites) {
    std::string key = site.other.fqn.value_or("") + "\n" + site.site_path;
    auto it = row_of.find(key);
    if (it == row_of.end()) {
      Json row = Json::object();
      row["fqn"] = site.other.fqn.value_or("");
      if (site.other.kind) row["kind"] = *site.other.kind;
      row["path"] = site.site_path;
      row["lines"] = Json::array();
      row["evidence"] = site.evidence;
      if (site.other.is_test) row["is_test"] = true;
      it = row_of.emplace(key, rows.size()).first;
      rows.push_back(std::move(row));
    }
    rows[it->second]["lines"].push_back(site.site_line);
  }
  Json head = Json::object();
  head["fqn"] = found.symbol.fqn;
  head["path"] = found.path;
  head["total_callers"] = rows.size();
  head["total_call_sites"] = sites.size();
  head["callers"] = Json::array();
  BudgetFit fit(std::move(head), budget);
  if (capped) fit.mark_truncated();
  for (auto& row : rows) {
    if (!fit.add("callers", std::move(row))) break;
  }
  return fit.finish();
}

Json references(index::Repository& repository, const Found& found, long long budget) {
  const auto id = *found.symbol.id;
  std::vector<Json> rows;
  std::set<std::pair<std::string, std::int64_t>> seen;
  auto add = [&](const std::string& kind, const std::string& path, std::int64_t line,
                 const std::string& in_symbol, bool evidence, const std::string& how) {
    if (!seen.insert({path, line}).second) return;
    Json row = Json::object();
    row["kind"] = kind;
    row["path"] = path;
    if (line > 0) row["line"] = line;
    if (!in_symbol.empty()) row["in"] = in_symbol;
    row["evidence_backed"] = evidence;
    if (!how.empty()) row["how"] = how;
    rows.push_back(std::move(row));
  };
  auto sites = repository.call_sites(id, index::CALLER, MAX_SITES + 1);
  bool capped = sites.size() > MAX_SITES;
  for (std::size_t i = 0; i < sites.size() && i < MAX_SITES; ++i) {
    add("call", sites[i].site_path, sites[i].site_line, sites[i].other.fqn.value_or(""), true,
        sites[i].evidence);
  }
  auto imports = repository.importers_of_symbol(id, MAX_SITES + 1);
  capped = capped || imports.size() > MAX_SITES;
  for (std::size_t i = 0; i < imports.size() && i < MAX_SITES; ++i) {
    add("import", imports[i].path, imports[i].line, "", true, "import " + imports[i].module);
  }
  // Symbols whose indexed text names it without a resolved call: mentions, not evidence.
  auto name = found.symbol.name;
  std::string quoted = "\"";
  for (char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  quoted += "\"";
  std::vector<index::SymbolId> mention_ids;
  for (const auto& hit : repository.search_text(quoted, MAX_MENTIONS, true)) {
    if (hit.id != id) mention_ids.push_back(hit.id);
  }
  for (const auto& [mid, pair] : repository.symbols_with_paths(mention_ids)) {
    (void)mid;
    add("mention", pair.second, pair.first.start_line, pair.first.fqn, false, "");
  }
  Json head = Json::object();
  head["fqn"] = found.symbol.fqn;
  head["path"] = found.path;
  head["total"] = rows.size();
  head["references"] = Json::array();
  BudgetFit fit(std::move(head), budget);
  if (capped) fit.mark_truncated();
  for (auto& row : rows) {
    if (!fit.add("references", std::move(row))) break;
  }
  return fit.finish();
}

}  // namespace

Json symbol_tool(const Json& arguments, ToolContext& context) {
  const auto action = arguments["action"].get<std::string>();
  const auto budget = arguments["token_budget"].get<long long>();
  auto found = find_symbol(context.repository, arguments["fqn"].get<std::string>());
  if (action == "callers") return callers(context.repository, found, budget);
  if (action == "references") return references(context.repository, found, budget);
  return detail(context.repository, found, budget);
}

}  // namespace orvane_tamsel::tool_handlers
