#pragma once
// What every language's extraction starts from: its query files compiled as one query, the
// parse of a file, the file's own record and its module symbol.

#include <tree_sitter/api.h>

#include <memory>
#include <string>
#include <string_view>

#include "orvane_tamsel/indexer/parsed_file.h"
#include "orvane_tamsel/indexer/tree_sitter_handles.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::indexer::skeleton {

struct CompiledQuery {
  QueryPtr query;
  std::string source;  // the query files joined, which pattern offsets point into
};

// The language's query files (language.queries) joined and compiled, so one pass over a tree
// serves them all; throws when a file is not embedded or does not compile.
CompiledQuery compile_queries(const utils::Language& language);

using TreePtr = std::unique_ptr<TSTree, TreeDeleter>;
// The file's syntax tree, from a parser kept per thread; throws when the parser gives none.
TreePtr parse(const utils::Language& language, std::string_view path, std::string_view content);

// A parsed file's own fields: path, language, module, whether it is test code, its lines.
ParsedFile file_record(const utils::Language& language, std::string_view path,
                       std::string_view module, std::string_view content);

// The module as a symbol spanning the whole file (the caller of top-level calls).
ParsedSymbol module_symbol(const ParsedFile& file);

}  // namespace orvane_tamsel::indexer::skeleton
