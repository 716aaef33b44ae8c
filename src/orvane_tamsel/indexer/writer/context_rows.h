#pragma once
// What the enclosing documentation says of a symbol, for its text row: the sentences of its
// package's (Go) or module's (Python) doc and of its type's or class's doc that name it
// (symbol_text.mentions), and what those docs say first (symbol_text.context).

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "orvane_tamsel/index/sqlite_db.h"

namespace orvane_tamsel::indexer::writer {

struct DocContext {
  std::string mentions, context;
};

// Whether a symbol of this kind holds what its language's members read: a change to its
// docstring rewrites their context.
bool holds_context(const std::string& language, const std::string& kind);

// Reads the enclosing docs, each once, for the symbols of one pass over the index.
class ContextReader {
 public:
  explicit ContextReader(index::Database& db);

  struct Place {
    const std::string& name;
    const std::string& fqn;
    const std::string& language;
    std::int64_t file_id;
    const std::string& module;  // the file's
    std::optional<std::int64_t> parent_id;
  };
  DocContext of(const Place& s);

 private:
  struct Holder {
    std::string name, doc;
  };
  const std::string& package_doc(const Place& s);
  const std::optional<Holder>& holder(const Place& s);

  index::Database& db_;
  std::map<std::string, std::string> packages_;  // by Go module, or Python file id
  std::map<std::string, std::optional<Holder>> holders_;
};

}  // namespace orvane_tamsel::indexer::writer
