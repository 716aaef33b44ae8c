#pragma once
// An FTS5 ranking function that returns each query term's share of a row's BM25 score, so that
// one search ranks the row for every subset of its terms.

struct sqlite3;

namespace orvane_tamsel::index {

// Adds `term_scores(symbol_text, weight...)` to the connection: a blob of one double per phrase
// of the MATCH expression, in the order written. The shares of a subset of phrases, summed in
// that order, are the bm25() score a search for that subset alone would rank the row by.
void add_term_scores(sqlite3* db);

}  // namespace orvane_tamsel::index
