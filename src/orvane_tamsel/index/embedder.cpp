#include "orvane_tamsel/index/embedder.h"

#include <cmath>

namespace orvane_tamsel::index {

double cosine(const std::vector<float>& a, const std::vector<float>& b) {
  double dot = 0, na = 0, nb = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    dot += static_cast<double>(a[i]) * b[i];
    na += static_cast<double>(a[i]) * a[i];
    nb += static_cast<double>(b[i]) * b[i];
  }
  return na > 0 && nb > 0 ? dot / std::sqrt(na * nb) : 0.0;
}

std::vector<double> Embedder::text_similarities(const std::string& asked,
                                                const std::vector<std::string>& texts) {
  const auto a = embed(asked);
  std::vector<double> out;
  out.reserve(texts.size());
  for (const auto& text : texts) out.push_back(cosine(a, embed(text)));
  return out;
}

}  // namespace orvane_tamsel::index
