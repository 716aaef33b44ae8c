#include "orvane_tamsel/index/meaning_vectors.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace orvane_tamsel::index {

namespace {

// A unit vector's dot product with a packed row, each value unpacked as read_row unpacks it, in
// eight running sums that the compiler keeps in vector registers: a question scores every symbol,
// reading a quarter of the bytes the unpacked floats would take.
float dot(const float* a, float scale, const std::int8_t* b, std::size_t n) {
  float lanes[8] = {};
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    for (std::size_t k = 0; k < 8; ++k) {
      lanes[k] += a[i + k] * (scale * static_cast<float>(b[i + k]));
    }
  }
  float sum = 0;
  for (; i < n; ++i) sum += a[i] * (scale * static_cast<float>(b[i]));
  for (float x : lanes) sum += x;
  return sum;
}

// A 16-bit question's dot product with a packed row, exact in integers and several times faster
// than the float one: the nearest-symbol scan's first pass.
std::int32_t rough_dot(const std::int16_t* a, const std::int8_t* b, std::size_t n) {
  std::int32_t sum = 0;
  for (std::size_t i = 0; i < n; ++i) sum += a[i] * static_cast<std::int16_t>(b[i]);
  return sum;
}

// Rows up to this wide cannot overflow rough_dot's sum (32767 x 127 per term).
constexpr std::size_t MAX_ROUGH_DIMS = 500;
// Per unit of a row's size: far above the rounding error of the float dot product (a few dozen
// roundings of 2^-24 each).
constexpr double FLOAT_SLACK = 1e-5;

}  // namespace

void MeaningVectors::add_word(const std::string& word, float weight, const float* row) {
  word_rows[word] = static_cast<std::uint32_t>(word_weights.size());
  word_weights.push_back(weight);
  words.insert(words.end(), row, row + dims);
}

void MeaningVectors::add_symbol(SymbolId id, bool is_test, const float* row, std::int64_t file) {
  add_symbol(id, is_test, row_bytes(row, dims), file);
}

void MeaningVectors::add_symbol(SymbolId id, bool is_test, std::string_view packed,
                                std::int64_t file) {
  float scale = 0;
  std::memcpy(&scale, packed.data(), sizeof scale);
  const auto* bytes = reinterpret_cast<const std::int8_t*>(packed.data() + sizeof scale);
  auto [it, added] = symbol_rows.emplace(id, static_cast<std::uint32_t>(symbol_ids.size()));
  int total = 0;
  for (std::size_t i = 0; i < dims; ++i) total += std::abs(static_cast<int>(bytes[i]));
  const float size = scale * static_cast<float>(total);
  if (!added) {
    symbol_is_test[it->second] = is_test ? 1 : 0;
    symbol_scales[it->second] = scale;
    symbol_sizes[it->second] = size;
    symbol_files[it->second] = file;
    std::copy(bytes, bytes + dims, &symbols[static_cast<std::size_t>(it->second) * dims]);
    return;
  }
  symbol_ids.push_back(id);
  symbol_is_test.push_back(is_test ? 1 : 0);
  symbol_scales.push_back(scale);
  symbol_sizes.push_back(size);
  symbol_files.push_back(file);
  symbols.insert(symbols.end(), bytes, bytes + dims);
}

void MeaningVectors::remove_symbol(SymbolId id) {
  auto it = symbol_rows.find(id);
  if (it == symbol_rows.end()) return;
  const std::size_t row = it->second, last = symbol_ids.size() - 1;
  symbol_rows.erase(it);
  if (row != last) {
    symbol_ids[row] = symbol_ids[last];
    symbol_is_test[row] = symbol_is_test[last];
    symbol_scales[row] = symbol_scales[last];
    symbol_sizes[row] = symbol_sizes[last];
    symbol_files[row] = symbol_files[last];
    std::copy_n(&symbols[last * dims], dims, &symbols[row * dims]);
    symbol_rows[symbol_ids[row]] = static_cast<std::uint32_t>(row);
  }
  symbol_ids.pop_back();
  symbol_is_test.pop_back();
  symbol_scales.pop_back();
  symbol_sizes.pop_back();
  symbol_files.pop_back();
  symbols.resize(last * dims);
}

void MeaningVectors::remove_files(const std::set<std::int64_t>& files) {
  std::vector<SymbolId> gone;
  for (std::size_t r = 0; r < symbol_ids.size(); ++r) {
    if (files.count(symbol_files[r]) != 0) gone.push_back(symbol_ids[r]);
  }
  for (auto id : gone) remove_symbol(id);
}

std::vector<float> MeaningVectors::text_vector(
    const std::vector<std::pair<std::string, float>>& weighted) const {
  std::vector<float> sum(dims, 0.0F);
  bool known = false;
  for (const auto& [word, weight] : weighted) {
    auto it = word_rows.find(word);
    if (it == word_rows.end()) continue;
    known = true;
    const float w = weight * word_weights[it->second];
    const float* row = &words[static_cast<std::size_t>(it->second) * dims];
    for (std::size_t i = 0; i < dims; ++i) sum[i] += w * row[i];
  }
  double norm = 0;
  for (float x : sum) norm += static_cast<double>(x) * x;
  norm = std::sqrt(norm);
  if (!known || norm <= 0) return {};
  for (auto& x : sum) x = static_cast<float>(x / norm);
  return sum;
}

std::vector<ScoredSymbol> MeaningVectors::nearest(const std::vector<float>& unit, int limit,
                                                  bool include_tests) const {
  std::vector<ScoredSymbol> scored;
  if (unit.size() != dims || limit <= 0) return scored;
  auto keep = static_cast<std::size_t>(limit);
  // Every row is first scored in integers, the question rounded to 16 bits: a range sure to hold
  // its exact score. Only rows whose range reaches the limit-th best lower bound can be among
  // the nearest; those are scored exactly, so the answer is the exact scan's.
  std::vector<std::uint32_t> rows;
  rows.reserve(symbol_ids.size());
  for (std::size_t r = 0; r < symbol_ids.size(); ++r) {
    if (include_tests || symbol_is_test[r] == 0) rows.push_back(static_cast<std::uint32_t>(r));
  }
  float most = 0;
  bool finite = true;
  for (float x : unit) {
    most = std::max(most, std::fabs(x));
    finite = finite && std::isfinite(x);
  }
  if (rows.size() > keep && finite && most > 0 && dims <= MAX_ROUGH_DIMS) {
    const double step = most / 32767.0;
    std::vector<std::int16_t> rounded(dims);
    for (std::size_t i = 0; i < dims; ++i) {
      rounded[i] = static_cast<std::int16_t>(std::lround(unit[i] / step));
    }
    std::vector<double> low(rows.size()), high(rows.size());
    for (std::size_t k = 0; k < rows.size(); ++k) {
      const std::size_t r = rows[k];
      const double rough =
          symbol_scales[r] * step * rough_dot(rounded.data(), &symbols[r * dims], dims);
      // Rounding the question moves each term by at most half a step times the row's value;
      // the slack covers the rounding of the exact score's float sums.
      const double margin = 0.5 * step * symbol_sizes[r] + FLOAT_SLACK * (1.0 + symbol_sizes[r]);
      low[k] = rough - margin;
      high[k] = rough + margin;
    }
    std::vector<double> lows = low;
    std::nth_element(lows.begin(), lows.begin() + static_cast<std::ptrdiff_t>(keep - 1), lows.end(),
                     std::greater<>());
    const double bar = lows[keep - 1];
    std::vector<std::uint32_t> near;
    for (std::size_t k = 0; k < rows.size(); ++k) {
      if (high[k] >= bar) near.push_back(rows[k]);
    }
    rows = std::move(near);
  }
  scored.reserve(rows.size());
  for (auto r : rows) {
    scored.push_back({symbol_ids[r], dot(unit.data(), symbol_scales[r], &symbols[r * dims], dims)});
  }
  auto by_score = [](const ScoredSymbol& a, const ScoredSymbol& b) {
    return a.score != b.score ? a.score > b.score : a.id < b.id;
  };
  keep = std::min(keep, scored.size());
  std::partial_sort(scored.begin(), scored.begin() + static_cast<std::ptrdiff_t>(keep),
                    scored.end(), by_score);
  scored.resize(keep);
  return scored;
}

double MeaningVectors::similarity(const std::vector<float>& unit, SymbolId id) const {
  auto it = symbol_rows.find(id);
  if (it == symbol_rows.end() || unit.size() != dims) return 0.0;
  const std::size_t row = it->second;
  return dot(unit.data(), symbol_scales[row], &symbols[row * dims], dims);
}

std::string row_bytes(const float* row, std::size_t dims) {
  float most = 0;
  for (std::size_t i = 0; i < dims; ++i) most = std::max(most, std::fabs(row[i]));
  const float scale = most > 0 ? most / 127.0F : 1.0F;
  std::string bytes(sizeof(float) + dims, '\0');
  std::memcpy(bytes.data(), &scale, sizeof scale);
  for (std::size_t i = 0; i < dims; ++i) {
    bytes[sizeof(float) + i] =
        static_cast<char>(static_cast<std::int8_t>(std::lround(row[i] / scale)));
  }
  return bytes;
}

bool is_packed_row(std::string_view bytes, std::size_t dims) {
  return bytes.size() == sizeof(float) + dims;
}

bool read_row(std::string_view bytes, std::size_t dims, std::vector<float>& into) {
  into.resize(dims);
  if (bytes.size() == dims * sizeof(float)) {  // as rows were stored before they were packed
    std::memcpy(into.data(), bytes.data(), bytes.size());
    return true;
  }
  if (bytes.size() != sizeof(float) + dims) return false;
  float scale = 0;
  std::memcpy(&scale, bytes.data(), sizeof scale);
  // Rounding leaves a unit row's length within half a percent of 1: close enough to read a dot
  // product as a cosine, and a reader unpacks every symbol's row.
  const auto* packed = reinterpret_cast<const std::int8_t*>(bytes.data() + sizeof(float));
  for (std::size_t i = 0; i < dims; ++i) into[i] = scale * static_cast<float>(packed[i]);
  return true;
}

std::string pack_symbol_rows(const MeaningVectors& rows) {
  const std::size_t n = rows.symbol_ids.size();
  std::string blob;
  if (n == 0) return blob;
  blob.reserve(n * (sizeof(SymbolId) + 1 + sizeof(float) + rows.dims));
  blob.append(reinterpret_cast<const char*>(rows.symbol_ids.data()), n * sizeof(SymbolId));
  blob.append(reinterpret_cast<const char*>(rows.symbol_is_test.data()), n);
  blob.append(reinterpret_cast<const char*>(rows.symbol_scales.data()), n * sizeof(float));
  blob.append(reinterpret_cast<const char*>(rows.symbols.data()), n * rows.dims);
  return blob;
}

bool add_packed_rows(std::string_view blob, std::int64_t file, MeaningVectors& into) {
  const std::size_t dims = into.dims;
  const std::size_t stride = sizeof(SymbolId) + 1 + sizeof(float) + dims;
  if (dims == 0 || blob.size() % stride != 0) return false;
  const std::size_t n = blob.size() / stride;
  if (n == 0) return true;
  const char* ids = blob.data();
  const char* tests = ids + n * sizeof(SymbolId);
  const char* scales = tests + n;
  const auto* bytes = reinterpret_cast<const std::int8_t*>(scales + n * sizeof(float));
  // No copy of a row through add_symbol: a reader adds every stored row at its first search.
  for (std::size_t i = 0; i < n; ++i) {
    SymbolId id = 0;
    float scale = 0;
    std::memcpy(&id, ids + i * sizeof id, sizeof id);
    std::memcpy(&scale, scales + i * sizeof scale, sizeof scale);
    const std::int8_t* row = bytes + i * dims;
    auto [it, added] =
        into.symbol_rows.emplace(id, static_cast<std::uint32_t>(into.symbol_ids.size()));
    if (!added) {  // a symbol stored with another file too: this row replaces that one
      std::string packed(sizeof scale + dims, '\0');
      std::memcpy(packed.data(), &scale, sizeof scale);
      std::memcpy(packed.data() + sizeof scale, row, dims);
      into.add_symbol(id, tests[i] != 0, packed, file);
      continue;
    }
    int total = 0;
    for (std::size_t k = 0; k < dims; ++k) total += std::abs(static_cast<int>(row[k]));
    into.symbol_ids.push_back(id);
    into.symbol_is_test.push_back(tests[i] != 0 ? 1 : 0);
    into.symbol_scales.push_back(scale);
    into.symbol_sizes.push_back(scale * static_cast<float>(total));
    into.symbol_files.push_back(file);
    into.symbols.insert(into.symbols.end(), row, row + dims);
  }
  return true;
}

}  // namespace orvane_tamsel::index
