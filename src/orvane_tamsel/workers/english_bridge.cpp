#include "orvane_tamsel/workers/english_bridge.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "orvane_tamsel/index/english_table.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/workers/term_match.h"

namespace orvane_tamsel::workers {

namespace {

constexpr std::size_t DIMS = index::english_table::DIMENSIONS;
// A name word found in fewer production names is a one-off, not the code base's word for a thing.
constexpr std::int64_t MIN_NAMED = 2;

// Lower-case letters only, and not a word a question drops ("to", "not").
bool plain(const std::string& w) {
  return w.size() >= 2 &&
         std::all_of(w.begin(), w.end(), [](char c) { return c >= 'a' && c <= 'z'; }) &&
         !utils::query_terms(w).empty();
}

}  // namespace

EnglishBridge::EnglishBridge(std::shared_ptr<index::EnglishVectors> vectors,
                             const std::filesystem::path& index_file, BridgeSettings settings)
    : vectors_(std::move(vectors)),
      db_(index_file, index::Database::Mode::read),
      settings_(settings) {}

void EnglishBridge::catch_up() {
  auto version_of = db_.prepare("PRAGMA data_version");
  std::int64_t version = version_of.step() ? version_of.integer(0) : 0;
  if (version == version_) return;
  version_ = version;
  std::map<std::string, std::int64_t> named;
  auto names = db_.prepare("SELECT name FROM symbols WHERE is_test = 0");
  while (names.step()) {
    auto parts = index::subwords(names.text(0));
    std::set<std::string> distinct(parts.begin(), parts.end());
    for (const auto& w : distinct) {
      if (plain(w)) ++named[w];
    }
  }
  words_.clear();
  rows_.clear();
  named_by_stem_.clear();
  for (const auto& [w, n] : named) {
    named_by_stem_[detail::stem(w)] += n;
    if (n < MIN_NAMED) continue;
    auto v = vectors_->word(w);
    if (v.empty()) continue;
    words_.push_back(w);
    rows_.insert(rows_.end(), v.begin(), v.end());
  }
}

std::vector<std::string> EnglishBridge::words_for(const std::vector<std::string>& terms) {
  std::lock_guard lock(mutex_);
  catch_up();
  std::set<std::string> term_stems;
  for (const auto& t : terms) term_stems.insert(detail::stem(t));
  std::vector<std::string> out;
  std::vector<std::pair<float, std::size_t>> near;
  for (const auto& t : terms) {
    auto have = named_by_stem_.find(detail::stem(t));
    if (have != named_by_stem_.end() && have->second >= settings_.rare_below) continue;
    auto v = vectors_->word(t);
    if (v.empty()) continue;
    near.clear();
    for (std::size_t i = 0; i < words_.size(); ++i) {
      const float* row = rows_.data() + i * DIMS;
      float dot = 0;
      for (std::size_t d = 0; d < DIMS; ++d) dot += row[d] * v[d];
      if (dot >= settings_.min_cosine) near.emplace_back(dot, i);
    }
    std::sort(near.begin(), near.end(), std::greater<>());
    std::size_t taken = 0;
    for (const auto& [cos, i] : near) {
      if (taken == settings_.per_term) break;
      const auto& w = words_[i];
      if (term_stems.count(detail::stem(w)) != 0) continue;
      ++taken;
      if (std::find(out.begin(), out.end(), w) == out.end()) out.push_back(w);
    }
  }
  return out;
}

std::shared_ptr<EnglishBridge> english_bridge(const std::filesystem::path& repository_root) {
  auto vectors = index::english_vectors();
  if (!vectors) return nullptr;
  BridgeSettings settings;
  if (const char* v = std::getenv("TB_COS")) settings.min_cosine = std::atof(v);
  if (const char* v = std::getenv("TB_K")) settings.per_term = std::strtoul(v, nullptr, 10);
  if (const char* v = std::getenv("TB_RARE")) settings.rare_below = std::atol(v);
  return std::make_shared<EnglishBridge>(std::move(vectors),
                                         index::existing_index_file(repository_root), settings);
}

}  // namespace orvane_tamsel::workers
