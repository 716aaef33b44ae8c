#include "orvane_tamsel/tool_handlers/budget_fit.h"

#include "orvane_tamsel/mcp_responses.h"

namespace orvane_tamsel::tool_handlers {

namespace {
// Room kept for the two closing keys at their widest.
const std::size_t CLOSING_CHARS =
    result_chars(Json{{"truncated", false}, {"tokens_used", 999999999}}) - 1;
}  // namespace

BudgetFit::BudgetFit(Json head, long long token_budget)
    : answer_(std::move(head)),
      limit_(static_cast<std::size_t>(token_budget < 1 ? 1 : token_budget) * CHARS_PER_TOKEN),
      used_(result_chars(answer_) + CLOSING_CHARS) {}

bool BudgetFit::add(const std::string& key, Json row) {
  if (full_) {
    truncated_ = true;
    return false;
  }
  auto& list = answer_[key];
  std::size_t cost = result_chars(row) + (list.empty() ? 0 : 1);
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
  // The count is part of the text it counts: settle it (its width changes at most twice).
  std::size_t tokens = 0;
  for (int i = 0; i < 4; ++i) {
    answer_["tokens_used"] = tokens;
    auto next = (result_chars(answer_) + CHARS_PER_TOKEN - 1) / CHARS_PER_TOKEN;
    if (next == tokens) break;
    tokens = next;
  }
  return std::move(answer_);
}

}  // namespace orvane_tamsel::tool_handlers
