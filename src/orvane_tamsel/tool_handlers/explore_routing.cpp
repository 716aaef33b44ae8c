// Which route a query takes, by its shape: tools, tests, path, identifier or question.

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <optional>
#include <stdexcept>

#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/utils/language_registry.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::tool_handlers {
namespace {

// A compiled pattern, made once at load and only matched afterwards.
class Pattern {
 public:
  Pattern(const char* text, std::uint32_t options) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text), PCRE2_ZERO_TERMINATED,
                          options | PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &error,
                          &offset, nullptr);
    if (code_ == nullptr) throw std::logic_error(std::string("bad pattern: ") + text);
  }
  ~Pattern() { pcre2_code_free(code_); }
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  // The text of the named group `group` when the pattern matches; "" for a match without it.
  std::optional<std::string> match(const std::string& subject, const char* group,
                                   std::uint32_t options = 0) const {
    pcre2_match_data* data = pcre2_match_data_create_from_pattern(code_, nullptr);
    int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0,
                         options, data, nullptr);
    std::optional<std::string> result;
    if (rc >= 0) {
      result = std::string();
      if (group != nullptr) {
        int n = pcre2_substring_number_from_name(code_, reinterpret_cast<PCRE2_SPTR>(group));
        PCRE2_SIZE* ov = pcre2_get_ovector_pointer(data);
        if (n > 0 && n < rc && ov[2 * n] != PCRE2_UNSET)
          result = subject.substr(ov[2 * n], ov[2 * n + 1] - ov[2 * n]);
      }
    }
    pcre2_match_data_free(data);
    return result;
  }

 private:
  pcre2_code* code_ = nullptr;
};

const std::array<std::string, 5> TOOL_QUESTIONS = {"available tools", "what tools", "more tools",
                                                   "tool list", "all tools"};
const Pattern TESTS_OF(
    R"(^(?:(?:which|what|find|show|list|all|the)\s+)*tests?\s+(?:for|of|on|covering|cover|covers|exercising|exercise|calling|(?:that|which)\s+(?:cover|covers|exercise|exercises|call|calls|test|tests))\s+(?:the\s+|a\s+|an\s+)?(?P<target>[^\s?]+)\s*\??$)",
    PCRE2_CASELESS);
const Pattern TESTS_AFTER(R"(^(?P<target>[^\s?]+)\s+tests?\s*\??$)", PCRE2_CASELESS);
const Pattern QUALIFIED_NAME(R"([A-Za-z_$][\w$]*(?:(?:\.|::|#)[A-Za-z_$][\w$]*)*)", 0);
const std::array<std::string, 3> QUALIFIERS = {".", "::", "#"};

}  // namespace

namespace detail {

bool is_path(const std::string& text) {
  if (text.find('/') != std::string::npos || text.find('\\') != std::string::npos) return true;
  return utils::detect_language(text).has_value();
}

bool is_name(const std::string& text) {
  if (!QUALIFIED_NAME.match(text, nullptr, PCRE2_ANCHORED | PCRE2_ENDANCHORED)) return false;
  for (const auto& q : QUALIFIERS)
    if (text.find(q) != std::string::npos) return true;
  return utils::reads_as_code(text);
}

}  // namespace detail

Route route(const std::string& query) {
  std::string text = utils::strip(query);
  std::string lowered = utils::lower(text);
  for (const auto& phrase : TOOL_QUESTIONS)
    if (lowered.find(phrase) != std::string::npos) return Route(TOOLS, text);
  if (auto t = TESTS_OF.match(text, "target")) return Route(TESTS, *t);
  if (auto t = TESTS_AFTER.match(text, "target")) {
    if (detail::is_path(*t) || detail::is_name(*t)) return Route(TESTS, *t);
  }
  if (utils::split_whitespace(text).size() == 1) {
    if (detail::is_path(text)) return Route(PATH, text);
    if (detail::is_name(text)) return Route(IDENTIFIER, text);
  }
  return Route(QUESTION, text);
}

}  // namespace orvane_tamsel::tool_handlers
