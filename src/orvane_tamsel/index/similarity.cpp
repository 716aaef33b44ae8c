#include "orvane_tamsel/index/similarity.h"

#include <algorithm>
#include <vector>

#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::index {

double similarity(const std::string& a, const std::string& b) {
  auto x = utils::decode(utils::lower(a));
  auto y = utils::decode(utils::lower(b));
  if (x.empty() && y.empty()) return 1;
  std::vector<std::size_t> row(y.size() + 1);
  for (std::size_t j = 0; j <= y.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= x.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= y.size(); ++j) {
      std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return 1.0 -
         static_cast<double>(row[y.size()]) / static_cast<double>(std::max(x.size(), y.size()));
}

}  // namespace orvane_tamsel::index
