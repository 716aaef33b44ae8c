#include "orvane_tamsel/indexer/languages/skeleton.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace orvane_tamsel::indexer::skeleton {

CompiledQuery compile_queries(const utils::Language& language) {
  CompiledQuery out;
  for (const auto& name : language.queries) {
    auto text = utils::query_source(language.name, name);
    if (text.empty()) throw std::runtime_error("query not embedded: " + language.name + "/" + name);
    out.source.append(text).push_back('\n');
  }
  std::uint32_t offset = 0;
  TSQueryError error = TSQueryErrorNone;
  out.query.reset(ts_query_new(language.grammar(), out.source.data(),
                               static_cast<std::uint32_t>(out.source.size()), &offset, &error));
  if (!out.query) {
    throw std::runtime_error("bad query for " + language.name + " at byte " +
                             std::to_string(offset));
  }
  return out;
}

TreePtr parse(const utils::Language& language, std::string_view path, std::string_view content) {
  thread_local std::unique_ptr<TSParser, ParserDeleter> parser(ts_parser_new());
  ts_parser_set_language(parser.get(), language.grammar());
  TreePtr tree(ts_parser_parse_string(parser.get(), nullptr, content.data(),
                                      static_cast<std::uint32_t>(content.size())));
  if (!tree) throw std::runtime_error("parser gave no tree for " + std::string(path));
  return tree;
}

ParsedFile file_record(const utils::Language& language, std::string_view path,
                       std::string_view module, std::string_view content) {
  ParsedFile out;
  out.path = path;
  out.language = language.name;
  out.module = module;
  out.is_test = utils::is_test_path(language, path);
  auto lines = static_cast<std::int64_t>(std::count(content.begin(), content.end(), '\n'));
  out.line_count = !content.empty() && content.back() != '\n' ? lines + 1 : lines;
  return out;
}

ParsedSymbol module_symbol(const ParsedFile& file) {
  ParsedSymbol mod;
  mod.fqn = file.module;
  auto dot = file.module.rfind('.');
  mod.name = dot == std::string::npos ? file.module : file.module.substr(dot + 1);
  mod.kind = "module";
  mod.start_line = 1;
  mod.end_line = std::max<std::int64_t>(file.line_count, 1);
  mod.is_test = file.is_test;
  return mod;
}

}  // namespace orvane_tamsel::indexer::skeleton
