#pragma once
// Texts as vectors of the sentence model's word table: a text's words (code names split into
// sub-words) looked up as themselves, else by a WordNet base form, and summed with a weight each.
// The table holds words embedded alone, so this costs a look-up and a sum a word.

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/index/word_table.h"

namespace orvane_tamsel::workers {

class SentenceVectors {
 public:
  // `dictionary` holds WordNet's exception lists (noun.exc, ...): irregular forms ("ran") find
  // their base form there; without them only the regular endings are cut.
  SentenceVectors(std::shared_ptr<const index::WordTable> table,
                  const std::filesystem::path& dictionary);
  ~SentenceVectors();
  SentenceVectors(const SentenceVectors&) = delete;
  SentenceVectors& operator=(const SentenceVectors&) = delete;

  // The table's words for the text's words, in order; words it lacks in every form are left out.
  std::vector<std::string> words(std::string_view text) const;
  // The unit sum of the words' rows, each times its weight (1 when `weights` lacks it); empty when
  // no word is given.
  std::vector<float> vector(const std::vector<std::string>& words,
                            const std::map<std::string, double>& weights) const;
  // The cosine of the asked text with each text, in order, every word weighted by `weigh`, asked
  // once with every distinct word of them all; 0 for a text with no known word, all 0 when the
  // asked text has none.
  std::vector<double> similarities(
      std::string_view asked, const std::vector<std::string>& texts,
      const std::function<std::map<std::string, double>(const std::vector<std::string>&)>& weigh)
      const;

 private:
  std::shared_ptr<const index::WordTable> table_;
  struct Exceptions;
  std::unique_ptr<Exceptions> exceptions_;
  // The table's word for one lower-case word, or empty.
  std::string_view base_form(std::string_view word, std::string& scratch) const;
};

// What a symbol says of itself to the sentence model: its name, its holder's name (its class, or
// its module or package) and its docstring's first sentence.
std::string self_text(const index::Symbol& symbol);

// A docstring's first sentence: up to the first full stop that ends a sentence, or a blank line.
std::string_view first_sentence(std::string_view doc);

// The sentence vectors over the installed table (see index::default_sentence_table) and WordNet,
// or null when the table is missing: shared by the whole process.
std::shared_ptr<const SentenceVectors> sentence_vectors();

}  // namespace orvane_tamsel::workers
