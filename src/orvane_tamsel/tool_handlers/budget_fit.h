#pragma once
// Fits a tool's answer to its token budget: rows go into their lists while the text fits, and the
// answer's own size, in tokens, is counted on the text the client receives.

#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

inline constexpr std::size_t CHARS_PER_TOKEN = 4;

class BudgetFit {
 public:
  // How a row's comma is counted: only between rows (the exact size), or before every row, the
  // first included (explore's reckoning, kept so that its answers stay as they are).
  enum class Commas { between_rows, every_row };

  // `head` holds the answer's fixed keys; lists that rows go into must already be arrays in it
  // (or strings, for add_line). A head that holds "tokens_used" already is measured as it is;
  // otherwise room is kept for "truncated" and "tokens_used" at their widest.
  BudgetFit(Json head, long long token_budget, Commas commas = Commas::between_rows);
  // Appends the row to head[key] when it fits; once a row does not fit, no later row is added.
  bool add(const std::string& key, Json row);
  // Appends one line of text to the string head[key] the same way.
  bool add_line(const std::string& key, const std::string& line);
  // Marks the answer as cut without trying a row (a list capped before fitting).
  void mark_truncated() { truncated_ = true; }
  bool full() const { return full_; }
  // The answer so far, for the last edits before finish().
  Json& answer() { return answer_; }
  // The answer with "truncated" and "tokens_used" set (appended when the head lacked them).
  Json finish();

 private:
  Json answer_;
  std::size_t limit_;
  std::size_t used_;
  Commas commas_;
  bool truncated_ = false;
  bool full_ = false;
};

// Sets answer["tokens_used"] to the tokens of the answer's text, the count itself included.
std::int64_t settle_tokens(Json& answer);

}  // namespace orvane_tamsel::tool_handlers
