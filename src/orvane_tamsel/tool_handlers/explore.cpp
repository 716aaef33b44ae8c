#include "orvane_tamsel/tool_handlers/explore.h"

#include <cstdio>
#include <exception>
#include <memory>

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::tool_handlers {
namespace detail {
namespace {

const std::string LOGGER = "orvane_tamsel.tool_handlers.explore";

std::shared_ptr<spdlog::logger> logger() {
  static const std::shared_ptr<spdlog::logger> made = [] {
    if (auto existing = spdlog::get(LOGGER)) return existing;
    return spdlog::stderr_color_mt(LOGGER);
  }();
  return made;
}

// The type and message of the exception being handled, and of what it nests.
std::string details() {
  try {
    throw;
  } catch (const std::exception& e) {
    return std::string(typeid(e).name()) + ": " + e.what();
  } catch (...) {
    return "unknown error";
  }
}

}  // namespace

std::string repr(const std::string& text) {
  std::u32string points = utils::decode(text);
  char32_t quote = U'\'';
  if (points.find(U'\'') != std::u32string::npos && points.find(U'"') == std::u32string::npos)
    quote = U'"';
  std::string out(1, static_cast<char>(quote));
  char buffer[16];
  for (char32_t c : points) {
    if (c == quote || c == U'\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == U'\n') {
      out += "\\n";
    } else if (c == U'\r') {
      out += "\\r";
    } else if (c == U'\t') {
      out += "\\t";
    } else if (c < 0x20 || (c >= 0x7f && c < 0xa0)) {
      std::snprintf(buffer, sizeof buffer, "\\x%02x", static_cast<unsigned>(c));
      out += buffer;
    } else if (c == 0x2028 || c == 0x2029 || c == 0xfeff) {
      std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
      out += buffer;
    } else {
      out += utils::encode(std::u32string(1, c));
    }
  }
  out += static_cast<char>(quote);
  return out;
}

void warn_failed(const std::string& what, const std::string& query) {
  // A damaged index is no partial answer: its error goes on to the caller, who has it rebuilt.
  try {
    throw;
  } catch (const index::IndexDamaged&) {
    throw;
  } catch (...) {
  }
  logger()->warn("explore: the {} of {} failed\n{}", what, repr(query), details());
}

}  // namespace detail

Json handle_explore(index::Repository& repository, const std::string& query,
                    const std::string& scope, const std::string& depth, long long token_budget,
                    workers::Retriever* retriever, index::MemoryLookup* memory_lookup) {
  using namespace detail;
  Route asked = route(query);
  if (asked.kind == TOOLS) return tool_list(query);
  const Depth& settings = depth_profile(depth);

  std::optional<Draft> draft;
  if (asked.kind == TESTS) {
    Draft d(query, TESTS);
    if (tests(repository, d, asked.target, settings)) draft = std::move(d);
  } else if (asked.kind == PATH) {
    Draft d(query, PATH);
    draft = std::move(path(repository, d, asked.target, settings));
  } else if (asked.kind == IDENTIFIER) {
    Draft d(query, IDENTIFIER);
    draft = std::move(identifier(repository, d, asked.target, settings));
  }

  if (!draft) {
    auto terms = utils::query_terms(query);
    if (terms.empty()) {
      Json answer = Json::object();
      answer["query"] = query;
      answer["error"] = NO_TERMS;
      answer["hint"] = NO_TERMS_HINT;
      return answer;
    }
    if (retriever == nullptr) throw std::logic_error("explore needs a retriever for questions");
    Draft d(query, QUESTION);
    bool about_tests = utils::is_test_query(terms);
    draft = std::move(question(repository, *retriever, d, settings, scope, about_tests));
  }

  if (scope != "file") {
    try {
      auto rows = components(repository, draft->files());
      if (!rows.empty()) draft->facts["components"] = rows;
    } catch (const std::exception&) {
      warn_failed("components", query);
      draft->notes.push_back(COMPONENTS_FAILED);
    }
  }

  std::int64_t budget = std::max<long long>(1, token_budget);
  Json retry_step = retry(query, scope, depth, budget);
  Json answer = fitted(*draft, budget, retry_step);
  return with_memories(std::move(answer), query, memory_lookup);
}

}  // namespace orvane_tamsel::tool_handlers
