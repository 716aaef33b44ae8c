#pragma once
// An embedder from general English word vectors (GloVe, trained on news text): words used alike
// in English lie near each other ("administrators" and "admins", "email" and "mail"), which no
// text of the repository has to say.

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/index/embedder.h"

namespace orvane_tamsel::index {

class EnglishVectors : public Embedder {
 public:
  // Maps the table built from the word vector package; nothing is read until a word is asked.
  explicit EnglishVectors(const std::filesystem::path& table);
  ~EnglishVectors() override;
  EnglishVectors(const EnglishVectors&) = delete;
  EnglishVectors& operator=(const EnglishVectors&) = delete;
  // Whether the table was found and has the expected layout.
  bool available() const;
  // The word's unit vector; empty when the table does not hold it (lower-case words only).
  std::vector<float> word(std::string_view lower) const;
  // The normalised sum of the text's words (code names split into sub-words, stop words
  // dropped); empty when no word is known.
  std::vector<float> embed(const std::string& text) override;

  // Where the table is looked for: $TAMSEL_ENGLISH_VECTORS, else english_vectors.bin beside the
  // executable or in ../share/tamsel from it.
  static std::filesystem::path default_table();

 private:
  struct Table;
  std::unique_ptr<Table> table_;
};

// The English embedder when its table is installed, else null.
std::shared_ptr<EnglishVectors> english_vectors();

}  // namespace orvane_tamsel::index
