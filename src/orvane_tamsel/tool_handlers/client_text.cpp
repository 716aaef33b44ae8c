#include "orvane_tamsel/tool_handlers/client_text.h"

namespace orvane_tamsel::tool_handlers {

namespace {

std::string plural(std::int64_t n, const std::string& word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const auto& p : parts) text += (text.empty() ? "" : separator) + p;
  return text;
}

}  // namespace

std::string test_reason(const index::TestEvidence& test) {
  std::vector<std::string> parts;
  if (test.symbols_called > 0) {
    std::string listed = joined(test.called, ", ");
    if (test.symbols_called > index::TEST_EVIDENCE_NAMES) {
      listed +=
          " and " + std::to_string(test.symbols_called - index::TEST_EVIDENCE_NAMES) + " more";
    }
    parts.push_back("calls " + listed + " (" + plural(test.call_sites, "call site") + ")");
  }
  if (test.helper_sites > 0) {
    parts.push_back("calls it through " + test.helper.value_or("a helper") + " (" +
                    plural(test.helper_sites, "call site") + ")");
  }
  if (test.reach_sites > 0) {
    std::string more = test.reach_functions > 1
                           ? " and " + std::to_string(test.reach_functions - 1) + " more"
                           : "";
    std::string callees = test.reach_hops < 2 ? ""
                          : more.empty()      ? " and its callees"
                                              : ", and their callees";
    parts.push_back("reaches it through " + test.through.value_or("other code") + more + callees +
                    " (" + plural(test.reach_sites, "call site") + ")");
  }
  if (test.name_sites > 0) {
    parts.push_back("calls " + test.called_by_name.value_or("it") +
                    " on a value of unknown type, a name only this file defines (" +
                    plural(test.name_sites, "call site") + ")");
  }
  if (test.imports) parts.push_back("imports " + *test.imports);
  if (test.named_after) parts.push_back("named after " + *test.named_after);
  return joined(parts, "; ");
}

Json test_rows(const index::TestsOfFile& found) {
  Json rows = Json::array();
  for (const auto& t : found.tests)
    rows.push_back(Json{{"path", t.path}, {"reason", test_reason(t)}});
  return rows;
}

namespace {

std::optional<std::string> shortfall_note(const workers::RetrievalResult& result) {
  switch (result.shortfall) {
    case workers::Shortfall::none:
      return std::nullopt;
    case workers::Shortfall::no_searchable_words:
      return "the question has no searchable words";
    case workers::Shortfall::no_symbol_matches:
      return "no indexed symbol matches the question";
    case workers::Shortfall::words_unmatched:
      return "found nothing for: " + joined(result.unmatched, ", ");
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> retrieval_note(const workers::RetrievalResult& result) {
  auto note = shortfall_note(result);
  std::string meaning;
  if (result.meaning_off) {
    meaning =
        "the meaning signal is off (the index holds no meaning vectors): only code that shares "
        "the question's words was found";
  } else if (result.meaning_stale) {
    meaning =
        "the meaning vectors were learned before many symbols changed: words new since then do "
        "not count yet (they are learned again when a quarter has changed)";
  }
  if (meaning.empty()) return note;
  return note ? *note + "; " + meaning : meaning;
}

}  // namespace orvane_tamsel::tool_handlers
