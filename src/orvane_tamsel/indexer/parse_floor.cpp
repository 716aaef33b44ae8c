#include "orvane_tamsel/indexer/parse_floor.h"

#include <tree_sitter/api.h>

#include <fstream>
#include <iterator>
#include <string>

#include "orvane_tamsel/indexer/walker.h"

namespace orvane_tamsel::indexer {

std::int64_t parse_only(const std::filesystem::path& repository_root, std::int64_t max_file_size) {
  auto walked = walk(repository_root, max_file_size);
  TSParser* parser = ts_parser_new();
  std::int64_t parsed = 0;
  for (const auto& f : walked.files) {
    std::ifstream in(repository_root / f.path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ts_parser_set_language(parser, f.language->grammar());
    TSTree* tree = ts_parser_parse_string(parser, nullptr, text.data(),
                                          static_cast<std::uint32_t>(text.size()));
    if (tree != nullptr) ++parsed;
    ts_tree_delete(tree);
  }
  ts_parser_delete(parser);
  return parsed;
}

}  // namespace orvane_tamsel::indexer
