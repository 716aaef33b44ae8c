// The search tool: a text search of the indexed files, literal or by regular expression.

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "orvane_tamsel/tool_handlers/budget_fit.h"
#include "orvane_tamsel/tool_handlers/repository_path.h"
#include "orvane_tamsel/tool_handlers/tools.h"

namespace orvane_tamsel::tool_handlers {

namespace {

constexpr std::size_t MAX_MATCHES = 200;
constexpr std::size_t MAX_LINE_BYTES = 240;
constexpr int PAGE = 1000;
// Bounds the work of one line against a pathological pattern.
constexpr std::uint32_t MATCH_LIMIT = 200000;

struct Pattern {
  std::unique_ptr<pcre2_code, decltype(&pcre2_code_free)> code{nullptr, pcre2_code_free};
  std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data{nullptr,
                                                                           pcre2_match_data_free};
  std::unique_ptr<pcre2_match_context, decltype(&pcre2_match_context_free)> context{
      nullptr, pcre2_match_context_free};
};

Pattern compile(const std::string& query, bool regex) {
  std::uint32_t options = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
  options |= regex ? PCRE2_UCP : (PCRE2_LITERAL | PCRE2_CASELESS);
  int error = 0;
  PCRE2_SIZE offset = 0;
  Pattern p;
  p.code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(query.data()), query.size(), options,
                             &error, &offset, nullptr));
  if (!p.code) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(error, message, sizeof message);
    throw ToolError("the regular expression does not compile at offset " + std::to_string(offset) +
                    ": " + reinterpret_cast<const char*>(message) +
                    "; fix it, or pass regex false to search for the literal text");
  }
  pcre2_jit_compile(p.code.get(), PCRE2_JIT_COMPLETE);
  p.data.reset(pcre2_match_data_create_from_pattern(p.code.get(), nullptr));
  p.context.reset(pcre2_match_context_create(nullptr));
  pcre2_set_match_limit(p.context.get(), MATCH_LIMIT);
  return p;
}

// The line cut to a readable length on a character boundary.
std::string shown(const std::string& line) {
  if (line.size() <= MAX_LINE_BYTES) return line;
  std::size_t end = MAX_LINE_BYTES;
  while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80) --end;
  return line.substr(0, end) + "...";
}

}  // namespace

Json search_tool(const Json& arguments, ToolContext& context) {
  auto& repository = context.repository;
  const auto query = arguments["query"].get<std::string>();
  const bool regex = arguments["regex"].get<bool>();
  if (query.empty()) throw ToolError("query is empty; give the words or the pattern to look for");
  auto pattern = compile(query, regex);
  const auto root = repository.root();

  std::vector<Json> rows;
  std::int64_t total = 0;
  std::int64_t files_matched = 0;
  bool limit_hit = false;
  for (int offset = 0;; offset += PAGE) {
    auto [paths, count] = repository.paths_page("", offset, PAGE);
    for (const auto& path : paths) {
      std::string rel;
      try {
        rel = checked_path(root, path);
      } catch (const ToolError&) {
        continue;
      }
      std::ifstream in(root / rel, std::ios::binary);
      std::string line;
      bool matched_file = false;
      for (std::int64_t n = 1; std::getline(in, line); ++n) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        int rc = pcre2_match(pattern.code.get(), reinterpret_cast<PCRE2_SPTR>(line.data()),
                             line.size(), 0, 0, pattern.data.get(), pattern.context.get());
        if (rc == PCRE2_ERROR_MATCHLIMIT || rc == PCRE2_ERROR_DEPTHLIMIT) limit_hit = true;
        if (rc < 0) continue;
        ++total;
        matched_file = true;
        if (rows.size() < MAX_MATCHES) {
          Json row = Json::object();
          row["path"] = path;
          row["line"] = n;
          row["text"] = shown(line);
          rows.push_back(std::move(row));
        }
      }
      files_matched += matched_file;
    }
    if (paths.empty() || offset + PAGE >= count) break;
  }
  Json head = Json::object();
  head["query"] = query;
  head["regex"] = regex;
  head["total"] = total;
  head["files"] = files_matched;
  head["matches"] = Json::array();
  if (limit_hit) {
    head["note"] = "some lines were too costly for the pattern and count as not matching";
  }
  BudgetFit fit(std::move(head), arguments["token_budget"].get<long long>());
  if (static_cast<std::size_t>(total) > rows.size()) fit.mark_truncated();
  for (auto& row : rows) {
    if (!fit.add("matches", std::move(row))) break;
  }
  return fit.finish();
}

}  // namespace orvane_tamsel::tool_handlers
