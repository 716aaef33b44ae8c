#pragma once
// The embedder port: turns text into a vector whose cosine with another says how near in meaning
// they are. Optional: the retriever works without one.

#include <string>
#include <vector>

namespace orvane_tamsel::workers {

class Embedder {
 public:
  virtual ~Embedder() = default;
  virtual std::vector<float> embed(const std::string& text) = 0;
};

namespace detail {
// 0 when either vector is all zeros.
double cosine(const std::vector<float>& a, const std::vector<float>& b);
}  // namespace detail

}  // namespace orvane_tamsel::workers
