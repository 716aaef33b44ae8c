#pragma once
// Owning handles for tree-sitter's C objects, so that every exit path frees them.

#include <tree_sitter/api.h>

#include <memory>

namespace orvane_tamsel::indexer {

struct QueryDeleter {
  void operator()(TSQuery* q) const { ts_query_delete(q); }
};
struct ParserDeleter {
  void operator()(TSParser* p) const { ts_parser_delete(p); }
};
struct TreeDeleter {
  void operator()(TSTree* t) const { ts_tree_delete(t); }
};
struct CursorDeleter {
  void operator()(TSQueryCursor* c) const { ts_query_cursor_delete(c); }
};
using QueryPtr = std::unique_ptr<TSQuery, QueryDeleter>;

}  // namespace orvane_tamsel::indexer
