#pragma once
// The hybrid retriever: BM25 over the symbol text, exact names, and a decision model that reorders
// the head, with the settings it reads.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "orvane_tamsel/index/embedder.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/workers/retriever.h"

namespace orvane_tamsel::workers {

// Host settings read from .tamsel/settings.json.
struct RetrievalSettings {
  bool rerank_results = true;  // "jev.explore_rerank_results"
};
// Reads DIR/.tamsel/settings.json; a missing file gives the defaults; a malformed one throws with
// the file and line.
RetrievalSettings load_settings(const std::filesystem::path& repository_root);

// The symbol kinds the retriever ranks.
extern const std::set<std::string> RETRIEVABLE_KINDS;

// What the rerank reads of one candidate, unweighted: the parts of its fused score and the
// features of the symbol.
struct RerankInputs {
  double text = 0;       // BM25 over the question's words, divided by the first hit's
  double widened = 0;    // BM25 over them widened with the code base's words, likewise
  double named = 0;      // 0.5 to 1 on the exact-name list (by question words in the fqn), else 0
  double meaning = 0;    // cosine with the question in the learned vectors
  double in_name = 0;    // idf-weighted share of the question's terms met by words of the fqn
  double whole = 0;      // a term is the whole name, or has its stem
  double in_path = 0;    // a term appears in the path
  double docstring = 0;  // it has one
  double callers = 0;    // log2(1 + callers), capped at 4
  double function = 0;   // a top-level function
  double test = 0;       // test code
  double thing = 0;      // a class or other thing, for a question that asks how to do something
  double exported = 0;   // a Go name its package exports
  double senses = 0;     // WordNet cosine of the question with the fqn's words
  double spelled = 0;    // a word spelled like code is its name (or the end of its fqn)
  double paired = 0;    // BM25 over two of the question's words at once, divided by the first hit's
  double own_name = 0;  // share of the question's terms met by its own name (no owner's words)
  double holder = 0;    // a thing for a how-question holding a function in the head that names
                        // words of the question the thing's name lacks
  double nearest = 0;   // place among the symbols nearest the question by meaning (1 first),
                        // 0 when not among them
  double importers = 0;    // log2(1 + files importing it by name), capped at 4
  double reexported = 0;   // a package's own file (`__init__.py`) imports it: the package offers it
  double public_name = 0;  // no part of its name or module path is private (leading underscore);
                           // for names whose visibility is not their case
  double covered = 0;      // share of the question's terms its text says anywhere
  double predicate = 0;    // a predicate's name, for a yes-or-no question
  double error_type = 0;   // a type named as an error, for a question about an error
  double owner_named = 0;  // share of a method's owner's name words that begin a question word
  double internal = 0;     // in a package only its own module may import (Go's `internal/`)
  double generated = 0;    // in a file a program wrote
  double elsewhere = 0;    // in a file built only for another platform
  double siblings = 0;     // the question's terms it says that few of its siblings in the head
                           // say (sibling_terms.h)
  double lead = 0;  // share of the question's terms its own name or its doc's first sentence says
  double opposite = 0;       // the piece telling it from a sibling's name said (name_pieces.h)
  double owner_ahead = 0;    // share of the question's terms its class's own name says and its own
                             // words lack, when it follows the class in the head and says more
  double spelled_owner = 0;  // a thing spelled by an action question with a member in the head
  double sibling_lead = 0;   // the question's terms its name or first sentence says that few of
                             // its siblings' names or first sentences say (sibling_terms.h)
  double head_named = 0;     // its name ends on the question's head noun (question_head.h)
  std::uint64_t said = 0;    // bit i: its text says the question's i-th term
};

// A fused candidate with what the rerank reads of it.
struct RankedCandidate {
  index::SymbolId id = 0;
  std::string fqn;
  std::string path;
  std::string kind;
  double fused = 0;
  RerankInputs inputs;
};

class HybridRetriever : public Retriever {
 public:
  // Without settings, those of the repository's root. `embedder` holds the symbols' vectors (the
  // one learned from the repository): without it, or when it holds none, the meaning signal is
  // off. `word_senses` compares the question with each name's words in the rerank (WordNet).
  explicit HybridRetriever(index::Repository& repository,
                           std::optional<RetrievalSettings> settings = std::nullopt,
                           std::shared_ptr<index::Embedder> embedder = nullptr,
                           std::shared_ptr<index::Embedder> word_senses = nullptr);
  RetrievalResult retrieve(const std::string& query, int limit, bool include_tests,
                           bool rerank) override;
  // Every fused candidate of a question, best fused first, with the rerank's inputs for each:
  // what its weights are fitted on (bench/quality/fit_rerank.py).
  std::vector<RankedCandidate> candidates(const std::string& query, bool include_tests);

 private:
  index::Repository& repository_;
  RetrievalSettings settings_;
  std::shared_ptr<index::Embedder> embedder_;
  std::shared_ptr<index::Embedder> word_senses_;
};

}  // namespace orvane_tamsel::workers
