#pragma once
// The sentences the tools write for the client from the typed results of the layers below: a
// test file's reason, a retrieval's shortfall.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/workers/retriever.h"

namespace orvane_tamsel::tool_handlers {

using Json = nlohmann::ordered_json;

// "calls Cart.total (2 call sites); imports shop.cart; named after cart.py"
std::string test_reason(const index::TestEvidence& test);
// [{"path", "reason"}...] in the order found.
Json test_rows(const index::TestsOfFile& found);
// What the client should learn about the question's words and how they were matched (the
// meaning signal off); none when the hits say it all.
std::optional<std::string> retrieval_note(const workers::RetrievalResult& result);

}  // namespace orvane_tamsel::tool_handlers
