#include "orvane_tamsel/workers/wordnet_embedder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <set>
#include <sstream>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/utils/query_terms.h"
#include "orvane_tamsel/utils/wordnet_files.h"

namespace orvane_tamsel::workers {

namespace {

// Common words have dozens of senses ("get" has 36); the first ones are the usual meanings.
constexpr std::size_t MAX_SENSES = 2;
// A derivationally related sense ("compress" for "compression") counts half a shared meaning.
constexpr float RELATED = 0.5F;
// Shorter words are code glue ("to", "fn") more often than English.
constexpr std::size_t MIN_WORD = 3;
// Bounds the per-word cache of a long-running server.
constexpr std::size_t MAX_CACHED = 50000;

using utils::find_line;
using Mapped = utils::MappedFile;

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && line[i] == ' ') ++i;
    std::size_t j = line.find(' ', i);
    if (j == std::string_view::npos) j = line.size();
    if (j > i) out.push_back(line.substr(i, j - i));
    i = j;
  }
  return out;
}

// The forms a sorted exception file gives for `word` ("mice": "mouse"), in file order: a word may
// have lines of its own for each.
std::vector<std::string_view> exception_forms(std::string_view text, std::string_view word) {
  std::vector<std::string_view> out;
  auto line = find_line(text, word);
  if (line.empty()) return out;
  auto start = static_cast<std::size_t>(line.data() - text.data());
  auto key_of = [&](std::size_t from) {
    auto end = text.find_first_of(" \n", from);
    return text.substr(from, (end == std::string_view::npos ? text.size() : end) - from);
  };
  while (start > 0) {  // back to the word's first line
    auto before = start < 2 ? std::string_view::npos : text.rfind('\n', start - 2);
    auto previous = before == std::string_view::npos ? 0 : before + 1;
    if (key_of(previous) != word) break;
    start = previous;
  }
  while (start < text.size() && key_of(start) == word) {
    auto end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    auto f = fields(text.substr(start, end - start));
    out.insert(out.end(), f.begin() + 1, f.end());
    start = end + 1;
  }
  return out;
}

std::uint64_t number(std::string_view s, int base = 10) {
  std::uint64_t v = 0;
  for (char c : s) {
    int d = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
            : base == 16 && std::isxdigit(static_cast<unsigned char>(c))
                ? std::tolower(static_cast<unsigned char>(c)) - 'a' + 10
                : -1;
    if (d < 0) break;
    v = v * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(d);
  }
  return v;
}

// WordNet's suffix rules per part of speech: (ending, replacement).
const std::array<std::vector<std::pair<std::string, std::string>>, 4> SUFFIXES = {{
    {{"s", ""},
     {"ses", "s"},
     {"xes", "x"},
     {"zes", "z"},
     {"ches", "ch"},
     {"shes", "sh"},
     {"men", "man"},
     {"ies", "y"}},
    {{"s", ""},
     {"ies", "y"},
     {"es", "e"},
     {"es", ""},
     {"ed", "e"},
     {"ed", ""},
     {"ing", "e"},
     {"ing", ""}},
    {{"er", ""}, {"est", ""}, {"er", "e"}, {"est", "e"}},
    {},
}};
constexpr std::array<const char*, 4> POS_NAMES = {"noun", "verb", "adj", "adv"};

std::uint32_t dimension(std::uint64_t key) {
  key ^= key >> 33;
  key *= 0xff51afd7ed558ccdULL;
  key ^= key >> 33;
  return static_cast<std::uint32_t>(key % WordNetEmbedder::DIMENSIONS);
}

std::size_t pos_index(char c) {
  switch (c) {
    case 'n':
      return 0;
    case 'v':
      return 1;
    case 'a':
    case 's':
      return 2;
    default:
      return 3;
  }
}

}  // namespace

struct WordNetEmbedder::Files {
  std::array<std::unique_ptr<Mapped>, 4> index, data;
  std::array<std::unique_ptr<Mapped>, 4> exceptions;  // irregular forms: "mice mouse"
  bool ok = true;
};

WordNetEmbedder::WordNetEmbedder(const std::filesystem::path& dictionary)
    : files_(std::make_unique<Files>()) {
  for (std::size_t p = 0; p < 4; ++p) {
    files_->index[p] =
        std::make_unique<Mapped>(dictionary / (std::string("index.") + POS_NAMES[p]));
    files_->data[p] = std::make_unique<Mapped>(dictionary / (std::string("data.") + POS_NAMES[p]));
    files_->ok = files_->ok && files_->index[p]->ok() && files_->data[p]->ok();
    files_->exceptions[p] =
        std::make_unique<Mapped>(dictionary / (std::string(POS_NAMES[p]) + ".exc"));
  }
}

WordNetEmbedder::~WordNetEmbedder() = default;

bool WordNetEmbedder::available() const {
  return files_->ok;
}

bool WordNetEmbedder::verb_first(const std::string& word) const {
  // One more than the tagged senses in a part of speech that has the word, else 0.
  auto tagged = [&](std::size_t p) -> std::size_t {
    if (!files_->ok) return 0;
    auto line = find_line(files_->index[p]->text(), word);
    if (line.empty()) return 0;
    // lemma pos synset_cnt p_cnt [ptr_symbol...] sense_cnt tagsense_cnt synset_offset...
    auto f = fields(line);
    if (f.size() < 4) return 0;
    auto at = 4 + number(f[3]) + 1;
    return at < f.size() ? number(f[at]) + 1 : 0;
  };
  return tagged(1) > tagged(0);
}

std::filesystem::path WordNetEmbedder::default_dictionary() {
  return "/usr/share/wordnet";
}

// The senses of a word: its first senses in each part of speech (under its dictionary form),
// their derivationally related senses at half weight, and the word itself, so that two spellings
// of one word always meet.
const WordNetEmbedder::Senses& WordNetEmbedder::concepts(const std::string& word) {
  if (auto it = cache_.find(word); it != cache_.end()) return it->second;
  if (cache_.size() >= MAX_CACHED) cache_.clear();
  if (utils::query_terms(word).empty()) return cache_[word];
  std::map<std::uint32_t, float> out;
  out[dimension(std::hash<std::string>{}(word))] = 1.0F;
  for (std::size_t p = 0; p < 4 && files_->ok; ++p) {
    std::vector<std::string> forms{word};
    for (auto form : exception_forms(files_->exceptions[p]->text(), word)) {
      forms.emplace_back(form);
    }
    for (const auto& [end, with] : SUFFIXES[p]) {
      if (word.size() > end.size() + 2 &&
          word.compare(word.size() - end.size(), end.size(), end) == 0) {
        forms.push_back(word.substr(0, word.size() - end.size()) + with);
      }
    }
    std::string_view line;
    for (const auto& form : forms) {
      line = find_line(files_->index[p]->text(), form);
      if (!line.empty()) break;
    }
    if (line.empty()) continue;
    // lemma pos synset_cnt p_cnt [ptr_symbol...] sense_cnt tagsense_cnt synset_offset...
    auto f = fields(line);
    if (f.size() < 4) continue;
    std::size_t senses = number(f[2]);
    std::size_t first = 4 + number(f[3]) + 2;
    for (std::size_t s = 0; s < senses && s < MAX_SENSES && first + s < f.size(); ++s) {
      auto offset = number(f[first + s]);
      float& w = out[dimension(offset * 4 + p)];
      w = std::max(w, 1.0F);
      // The synset's line in the data file starts at its offset:
      // offset lex_filenum ss_type w_cnt(hex) [word lex_id]... p_cnt [ptr offset pos st]...
      auto data = files_->data[p]->text();
      if (offset >= data.size()) continue;
      auto end = data.find('\n', offset);
      auto d = fields(data.substr(offset, end == std::string_view::npos ? end : end - offset));
      if (d.size() < 4) continue;
      std::size_t at = 4 + 2 * number(d[3], 16);
      if (at >= d.size()) continue;
      std::size_t pointers = number(d[at]);
      for (std::size_t k = 0; k < pointers && at + 4 * k + 4 < d.size(); ++k) {
        auto symbol = d[at + 1 + 4 * k];
        if (symbol != "+") continue;
        auto target = number(d[at + 2 + 4 * k]);
        auto target_pos = d[at + 3 + 4 * k];
        float& r = out[dimension(target * 4 + pos_index(target_pos.empty() ? 'n' : target_pos[0]))];
        r = std::max(r, RELATED);
      }
    }
  }
  auto& slot = cache_[word];
  slot.assign(out.begin(), out.end());
  return slot;
}

WordNetEmbedder::Senses WordNetEmbedder::unit(const std::string& text) {
  std::set<std::string> words;
  std::string token;
  auto flush = [&] {
    for (auto& w : index::subwords(token)) {
      bool letters = std::all_of(w.begin(), w.end(), [](char c) { return c >= 'a' && c <= 'z'; });
      if (letters && w.size() >= MIN_WORD) words.insert(w);
    }
    token.clear();
  };
  for (char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
      token.push_back(c);
    } else {
      flush();
    }
  }
  flush();
  std::map<std::uint32_t, float> sum;
  for (const auto& w : words) {
    for (const auto& [d, weight] : concepts(w)) sum[d] += weight;
  }
  double norm = 0;
  for (const auto& [d, x] : sum) norm += static_cast<double>(x) * x;
  Senses out(sum.begin(), sum.end());
  if (norm > 0) {
    for (auto& [d, x] : out) x = static_cast<float>(x / std::sqrt(norm));
  }
  return out;
}

std::vector<float> WordNetEmbedder::embed(const std::string& text) {
  std::vector<float> v(DIMENSIONS, 0.0F);
  std::lock_guard lock(mutex_);
  for (const auto& [d, x] : unit(text)) v[d] = x;
  return v;
}

// Summed in dimension order as index::cosine sums the dense vectors, so the figures are the same.
std::vector<double> WordNetEmbedder::text_similarities(const std::string& asked,
                                                       const std::vector<std::string>& texts) {
  std::lock_guard lock(mutex_);
  const auto a = unit(asked);
  double na = 0;
  for (const auto& [d, x] : a) na += static_cast<double>(x) * x;
  std::vector<double> out;
  out.reserve(texts.size());
  for (const auto& text : texts) {
    const auto b = unit(text);
    double dot = 0, nb = 0;
    auto i = a.begin();
    for (const auto& [d, x] : b) {
      nb += static_cast<double>(x) * x;
      while (i != a.end() && i->first < d) ++i;
      if (i != a.end() && i->first == d) dot += static_cast<double>(i->second) * x;
    }
    out.push_back(na > 0 && nb > 0 ? dot / std::sqrt(na * nb) : 0.0);
  }
  return out;
}

std::shared_ptr<index::Embedder> word_sense_embedder() {
  static std::shared_ptr<WordNetEmbedder> shared = [] {
    auto e = std::make_shared<WordNetEmbedder>(WordNetEmbedder::default_dictionary());
    return e->available() ? e : nullptr;
  }();
  return shared;
}

}  // namespace orvane_tamsel::workers
