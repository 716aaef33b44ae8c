// The learned embedder: the word rows of a question's words, read as they are asked, and every
// symbol's row in one matrix, read at the first search (a value per file) and then kept up to
// date by the files each meaning pass wrote.

#include "orvane_tamsel/index/sqlite_embedder.h"

#include <mutex>
#include <set>
#include <string>

#include "orvane_tamsel/index/meaning_vectors.h"
#include "orvane_tamsel/index/meaning_words.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_meaning.h"

namespace orvane_tamsel::index {

namespace {

// Vectors learned before this share of their symbols changed are called stale.
constexpr double STALE_SHARE = 0.1;

class LearnedEmbedder : public Embedder {
 public:
  explicit LearnedEmbedder(const std::filesystem::path& file) : db_(file, Database::Mode::read) {}

  SymbolVectors symbol_vectors() override {
    std::lock_guard lock(mutex_);
    auto generation = meaning_generation(db_);
    if (!generation) {
      forget();
      state_ = {};
      return state_;
    }
    if (held_ && *generation == generation_) return state_;
    if (!held_ || meaning_words_generation(db_) > generation_) {
      forget();  // the words were learned again: every row changed
    } else if (matrix_loaded_) {
      apply_meaning_changes(db_, generation_, vectors_);
    }
    held_ = true;
    generation_ = *generation;
    auto learned = static_cast<double>(meaning_learned_from(db_));
    auto changed = static_cast<double>(meaning_changed_since_learning(db_));
    state_ = {true, learned > 0 && changed >= STALE_SHARE * learned};
    return state_;
  }

  std::vector<float> embed(const std::string& text) override {
    std::vector<std::pair<std::string, float>> weighted;
    for (auto& w : meaning_words(text)) weighted.emplace_back(std::move(w), 1.0F);
    std::lock_guard lock(mutex_);
    if (!held_) return {};
    std::vector<std::string> unread;
    for (const auto& [word, weight] : weighted) {
      if (vectors_.word_rows.count(word) == 0 && asked_.insert(word).second) {
        unread.push_back(word);
      }
    }
    read_meaning_words(db_, unread, vectors_);
    return vectors_.text_vector(weighted);
  }

  std::vector<ScoredSymbol> nearest(const std::vector<float>& asked, int limit,
                                    bool include_tests) override {
    std::lock_guard lock(mutex_);
    if (!load_matrix()) return {};
    return vectors_.nearest(asked, limit, include_tests);
  }

  std::vector<double> similarities(const std::vector<float>& asked,
                                   const std::vector<SymbolId>& ids) override {
    std::lock_guard lock(mutex_);
    std::vector<double> out(ids.size(), 0.0);
    if (!load_matrix()) return out;
    for (std::size_t i = 0; i < ids.size(); ++i) out[i] = vectors_.similarity(asked, ids[i]);
    return out;
  }

 private:
  void forget() {
    vectors_ = MeaningVectors{};
    asked_.clear();
    matrix_loaded_ = false;
    held_ = false;
  }

  bool load_matrix() {
    if (!held_) return false;
    if (!matrix_loaded_) {
      if (vectors_.dims == 0) read_meaning_words(db_, {}, vectors_);
      read_meaning_symbols(db_, vectors_);
      matrix_loaded_ = true;
    }
    return true;
  }

  Database db_;
  std::mutex mutex_;
  bool held_ = false;           // a meaning pass ran; generation_ is the one caught up with
  bool matrix_loaded_ = false;  // the symbol rows are in vectors_
  std::int64_t generation_ = 0;
  SymbolVectors state_;
  MeaningVectors vectors_;       // the words read so far and, once loaded, every symbol
  std::set<std::string> asked_;  // words asked for: read, or missing
};

}  // namespace

std::shared_ptr<Embedder> open_learned_embedder(const std::filesystem::path& repository_root) {
  auto file = existing_index_file(repository_root);
  return std::make_shared<LearnedEmbedder>(file);
}

}  // namespace orvane_tamsel::index
