#pragma once
// Fits a tool's answer to its token budget: rows go into their lists while the text fits.

#include <cstddef>
#include <string>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

inline constexpr std::size_t CHARS_PER_TOKEN = 4;

class BudgetFit {
 public:
  // `head` holds the answer's fixed keys; lists that rows go into must already be arrays in it
  // (or strings, for add_line).
  BudgetFit(Json head, long long token_budget);
  // Appends the row to head[key] when it fits; once a row does not fit, no later row is added.
  bool add(const std::string& key, Json row);
  // Appends one line of text to the string head[key] the same way.
  bool add_line(const std::string& key, const std::string& line);
  // Marks the answer as cut without trying a row (a list capped before fitting).
  void mark_truncated() { truncated_ = true; }
  bool full() const { return full_; }
  // The answer with "truncated" and "tokens_used" appended.
  Json finish();

 private:
  Json answer_;
  std::size_t limit_;
  std::size_t used_;
  bool truncated_ = false;
  bool full_ = false;
};

}  // namespace orvane_tamsel::tool_handlers
