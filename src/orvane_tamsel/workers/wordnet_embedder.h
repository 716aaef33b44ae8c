#pragma once
// An embedder from WordNet's English word senses: words that share a meaning get shared
// dimensions ("compute" and "calculate", "decompressed" and "decompression").

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/index/embedder.h"

namespace orvane_tamsel::workers {

class WordNetEmbedder : public index::Embedder {
 public:
  // Reads the dictionary files under `dictionary` (index.* and data.* of the Debian package).
  explicit WordNetEmbedder(const std::filesystem::path& dictionary);
  ~WordNetEmbedder() override;
  // Whether the dictionary files were found and read.
  bool available() const;
  // A unit vector of DIMENSIONS values over the text's words (code names split into sub-words);
  // all zeros when no word is known.
  std::vector<float> embed(const std::string& text) override;
  // The same cosines as embed's vectors give, from the few senses each text has.
  std::vector<double> text_similarities(const std::string& asked,
                                        const std::vector<std::string>& texts) override;

  // Whether the dictionary tags the word (as written, lower case) as a verb more often than as a
  // noun, or knows it only as a verb: a question opening with it is an imperative.
  bool verb_first(const std::string& word) const override;
  bool knows_parts_of_speech() const override { return true; }

  static constexpr std::size_t DIMENSIONS = 1024;
  static std::filesystem::path default_dictionary();

 private:
  struct Files;
  std::unique_ptr<Files> files_;
  std::mutex mutex_;
  std::map<std::string, std::vector<std::pair<std::uint32_t, float>>, std::less<>> cache_;
  using Senses = std::vector<std::pair<std::uint32_t, float>>;  // by dimension, ascending
  // Empty for a word the question terms leave out ("the", "and").
  const Senses& concepts(const std::string& word);
  // embed's vector without its zeros; called with mutex_ held.
  Senses unit(const std::string& text);
};

// The WordNet embedder when its dictionary is installed, else null.
std::shared_ptr<index::Embedder> word_sense_embedder();

}  // namespace orvane_tamsel::workers
