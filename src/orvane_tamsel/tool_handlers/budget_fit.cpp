#include "orvane_tamsel/tool_handlers/budget_fit.h"

#include <limits>

#include "orvane_tamsel/mcp_responses.h"

namespace orvane_tamsel::tool_handlers {

namespace {
// Room kept for the two closing keys at their widest.
const std::size_t CLOSING_CHARS =
    result_chars(Json{{"truncated", false}, {"tokens_used", 999999999}}) - 1;

std::size_t budget_chars(long long token_budget) {
  auto tokens = static_cast<std::size_t>(token_budget < 1 ? 1 : token_budget);
  constexpr auto most = std::numeric_limits<std::size_t>::max() / CHARS_PER_TOKEN;
  return tokens > most ? std::numeric_limits<std::size_t>::max() : tokens * CHARS_PER_TOKEN;
}
}  // namespace

BudgetFit::BudgetFit(Json head, long long token_budget, Commas commas)
    : answer_(std::move(head)),
      limit_(budget_chars(token_budget)),
      used_(result_chars(answer_) + (answer_.contains("tokens_used") ? 0 : CLOSING_CHARS)),
      commas_(commas) {}

bool BudgetFit::add(const std::string& key, Json row) {
  if (full_) {
    truncated_ = true;
    return false;
  }
  auto& list = answer_[key];
  bool comma = commas_ == Commas::every_row || !list.empty();
  std::size_t cost = result_chars(row) + (comma ? 1 : 0);
  if (used_ + cost > limit_) {
    full_ = truncated_ = true;
    return false;
  }
  used_ += cost;
  list.push_back(std::move(row));
  return true;
}

bool BudgetFit::add_line(const std::string& key, const std::string& line) {
  if (full_) {
    truncated_ = true;
    return false;
  }
  auto& text = answer_[key];
  const auto& current = text.get_ref<const std::string&>();
  // The line's escaped size, plus the escaped "\n" before it.
  std::size_t cost = result_chars(Json(line)) - 2 + (current.empty() ? 0 : 2);
  if (used_ + cost > limit_) {
    full_ = truncated_ = true;
    return false;
  }
  used_ += cost;
  text = current.empty() ? line : current + "\n" + line;
  return true;
}

Json BudgetFit::finish() {
  answer_["truncated"] = truncated_;
  settle_tokens(answer_);
  return std::move(answer_);
}

std::int64_t settle_tokens(Json& answer) {
  // The count is part of the text it counts: settle it (its width changes at most twice).
  std::size_t tokens = 0;
  for (int i = 0; i < 4; ++i) {
    answer["tokens_used"] = tokens;
    auto next = (result_chars(answer) + CHARS_PER_TOKEN - 1) / CHARS_PER_TOKEN;
    if (next == tokens) break;
    tokens = next;
  }
  return answer["tokens_used"].get<std::int64_t>();
}

}  // namespace orvane_tamsel::tool_handlers
