#pragma once
// The embedder port: turns text into a vector whose cosine with another says how near in meaning
// they are. An embedder learned from the index also holds a vector per symbol and finds the
// symbols nearest a question. Optional: the retriever works without one.

#include <string>
#include <vector>

#include "orvane_tamsel/index/repository.h"

namespace orvane_tamsel::index {

// What an embedder's symbol vectors are worth now.
struct SymbolVectors {
  bool held = false;  // false: it has none (the meaning signal is off)
  // Learned before a tenth or more of the symbols changed: words new since are not in them.
  bool stale = false;
};

class Embedder {
 public:
  virtual ~Embedder() = default;
  // The text's vector; empty or all zeros when no word of it is known.
  virtual std::vector<float> embed(const std::string& text) = 0;
  // Asked once per question, before nearest and similarities: an embedder that reads the index
  // catches up with it here.
  virtual SymbolVectors symbol_vectors() { return {}; }
  // The `limit` symbols whose vectors lie nearest a vector of embed(), best first, scored by
  // cosine; none from an embedder that holds no symbol vectors.
  virtual std::vector<ScoredSymbol> nearest(const std::vector<float>& /*asked*/, int /*limit*/,
                                            bool /*include_tests*/) {
    return {};
  }
  // The cosine of the asked text's vector with each text's, in order.
  virtual std::vector<double> text_similarities(const std::string& asked,
                                                const std::vector<std::string>& texts);
  // The cosine of a vector of embed() with each symbol's, in order; 0 for a symbol without one.
  virtual std::vector<double> similarities(const std::vector<float>& /*asked*/,
                                           const std::vector<SymbolId>& ids) {
    return std::vector<double>(ids.size(), 0.0);
  }
  // Whether the embedder reads parts of speech: only then can verb_first tell an imperative
  // from a noun phrase.
  virtual bool knows_parts_of_speech() const { return false; }
  // Whether the word (lower case) is a verb before it is a noun.
  virtual bool verb_first(const std::string& /*word*/) const { return false; }
};

// 0 when either vector is all zeros.
double cosine(const std::vector<float>& a, const std::vector<float>& b);

}  // namespace orvane_tamsel::index
