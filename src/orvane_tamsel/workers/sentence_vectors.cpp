#include "orvane_tamsel/workers/sentence_vectors.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <set>
#include <utility>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/utils/wordnet_files.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace orvane_tamsel::workers {

struct SentenceVectors::Exceptions {
  std::array<std::unique_ptr<utils::MappedFile>, 4> files;
};

SentenceVectors::SentenceVectors(std::shared_ptr<const index::WordTable> table,
                                 const std::filesystem::path& dictionary)
    : table_(std::move(table)), exceptions_(std::make_unique<Exceptions>()) {
  const std::array<const char*, 4> parts = {"noun.exc", "verb.exc", "adj.exc", "adv.exc"};
  for (std::size_t i = 0; i < parts.size(); ++i) {
    exceptions_->files[i] = std::make_unique<utils::MappedFile>(dictionary / parts[i]);
  }
}

SentenceVectors::~SentenceVectors() = default;

std::string_view SentenceVectors::base_form(std::string_view word, std::string& scratch) const {
  if (table_->row(word) != nullptr) return word;
  // Irregular forms first ("children": "child"), as WordNet's own morphology does.
  for (const auto& file : exceptions_->files) {
    auto line = utils::find_line(file->text(), word);
    if (line.empty()) continue;
    auto form = line.substr(word.size() + 1);
    form = form.substr(0, form.find(' '));
    if (!form.empty() && table_->row(form) != nullptr) return form;
  }
  // WordNet's detachment rules: the ending, what it replaced.
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 17> RULES = {{
      {"ies", "y"},
      {"ches", "ch"},
      {"shes", "sh"},
      {"ses", "s"},
      {"xes", "x"},
      {"zes", "z"},
      {"es", "e"},
      {"es", ""},
      {"s", ""},
      {"ing", "e"},
      {"ing", ""},
      {"ed", "e"},
      {"ed", ""},
      {"est", "e"},
      {"est", ""},
      {"er", "e"},
      {"er", ""},
  }};
  for (auto [end, put] : RULES) {
    if (word.size() <= end.size() + 1 || !word.ends_with(end)) continue;
    scratch.assign(word.substr(0, word.size() - end.size())).append(put);
    if (table_->row(scratch) != nullptr) return scratch;
  }
  return {};
}

std::vector<std::string> SentenceVectors::words(std::string_view text) const {
  std::vector<std::string> out;
  std::string scratch;
  auto take = [&](std::string_view run) {
    for (const auto& w : index::subwords(run)) {
      auto form = base_form(w, scratch);
      if (!form.empty()) out.emplace_back(form);
    }
  };
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    bool inside = i < text.size() &&
                  (std::isalnum(static_cast<unsigned char>(text[i])) != 0 || text[i] == '_');
    if (inside) continue;
    if (i > start) take(text.substr(start, i - start));
    start = i + 1;
  }
  return out;
}

std::vector<float> SentenceVectors::vector(const std::vector<std::string>& words,
                                           const std::map<std::string, double>& weights) const {
  if (words.empty()) return {};
  const auto dims = table_->dimensions();
  std::vector<float> sum(dims, 0.0F);
  for (const auto& w : words) {
    const auto* row = table_->row(w);
    if (row == nullptr) continue;
    auto it = weights.find(w);
    const auto weight = static_cast<float>(it == weights.end() ? 1.0 : it->second);
    for (std::size_t d = 0; d < dims; ++d) sum[d] += weight * static_cast<float>(row[d]);
  }
  double norm = 0;
  for (float x : sum) norm += static_cast<double>(x) * x;
  if (norm <= 0) return std::vector<float>(dims, 0.0F);
  const auto scale = static_cast<float>(1.0 / std::sqrt(norm));
  for (auto& x : sum) x *= scale;
  return sum;
}

std::vector<double> SentenceVectors::similarities(
    std::string_view asked, const std::vector<std::string>& texts,
    const std::function<std::map<std::string, double>(const std::vector<std::string>&)>& weigh)
    const {
  std::vector<double> out(texts.size(), 0.0);
  auto asked_words = words(asked);
  if (asked_words.empty()) return out;
  std::vector<std::vector<std::string>> said;
  std::set<std::string> distinct(asked_words.begin(), asked_words.end());
  for (const auto& text : texts) {
    said.push_back(words(text));
    distinct.insert(said.back().begin(), said.back().end());
  }
  auto weights = weigh({distinct.begin(), distinct.end()});
  auto question = vector(asked_words, weights);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    auto v = vector(said[i], weights);
    double dot = 0;
    for (std::size_t d = 0; d < v.size() && d < question.size(); ++d) {
      dot += static_cast<double>(v[d]) * question[d];
    }
    out[i] = dot;
  }
  return out;
}

std::string_view first_sentence(std::string_view doc) {
  constexpr std::size_t MOST = 300;  // a sentence that runs on says little more
  std::size_t end = std::min(doc.size(), MOST);
  for (std::size_t i = 0; i < end; ++i) {
    bool stop = doc[i] == '.' &&
                (i + 1 == doc.size() || std::isspace(static_cast<unsigned char>(doc[i + 1])) != 0);
    bool blank = doc[i] == '\n' && i + 1 < doc.size() && doc[i + 1] == '\n';
    if (stop || blank) return doc.substr(0, i);
  }
  return doc.substr(0, end);
}

std::string self_text(const index::Symbol& symbol) {
  std::string_view fqn = symbol.fqn;
  std::string_view holder;
  if (fqn.size() > symbol.name.size() + 1 && fqn.ends_with(symbol.name)) {
    auto before = fqn.substr(0, fqn.size() - symbol.name.size() - 1);
    auto dot = before.rfind('.');
    holder = dot == std::string_view::npos ? before : before.substr(dot + 1);
  }
  std::string text = symbol.name;
  text.append(" ").append(holder).append(" ");
  text.append(first_sentence(symbol.docstring.value_or("")));
  return text;
}

std::shared_ptr<const SentenceVectors> sentence_vectors() {
  static const auto shared = []() -> std::shared_ptr<const SentenceVectors> {
    auto table = index::open_word_table(index::default_sentence_table());
    if (!table) return nullptr;
    return std::make_shared<SentenceVectors>(std::move(table),
                                             WordNetEmbedder::default_dictionary());
  }();
  return shared;
}

}  // namespace orvane_tamsel::workers
