#pragma once
// Question words the repository's names never use, bridged by English word vectors to name words
// it does use for them ("administrators" -> admins, "email" -> mail).

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orvane_tamsel/index/english_vectors.h"
#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::workers {

struct BridgeSettings {
  double min_cosine = 0.6;  // how near in English a name word must be
  std::size_t per_term = 2;
  // A term is bridged when fewer production names than this hold a word of its stem.
  std::int64_t rare_below = 3;
};

class EnglishBridge {
 public:
  // Reads the names of the index at `index_file` at the first question, and again after the
  // index changed.
  EnglishBridge(std::shared_ptr<index::EnglishVectors> vectors,
                const std::filesystem::path& index_file, BridgeSettings settings = {});
  // Name words to search beside `terms`, nearest first per term; none is a form of a term.
  std::vector<std::string> words_for(const std::vector<std::string>& terms);
  index::EnglishVectors& vectors() { return *vectors_; }

 private:
  void catch_up();

  std::shared_ptr<index::EnglishVectors> vectors_;
  index::Database db_;
  BridgeSettings settings_;
  std::mutex mutex_;
  std::int64_t version_ = -1;
  std::vector<std::string> words_;  // name words the English table holds, named often enough
  std::vector<float> rows_;         // their unit vectors, one after another
  std::map<std::string, std::int64_t> named_by_stem_;
};

// The bridge over DIR/.tamsel/index.db when the English table is installed, else null.
std::shared_ptr<EnglishBridge> english_bridge(const std::filesystem::path& repository_root);

}  // namespace orvane_tamsel::workers
