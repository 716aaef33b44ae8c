#pragma once
// The extraction every language shares: the grammar's tags.scm (plus a language's own query
// files) names definitions and calls; a language's rules, a subclass, say what tags do not
// (kinds, fqn scopes, imports, test code, how a call is resolved), and may keep the other
// matches of the same query pass for passes of their own.

#include <tree_sitter/api.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/parsed_file.h"
#include "orvane_tamsel/utils/language_registry.h"

namespace orvane_tamsel::indexer::tagged {

// One match of a definition or reference pattern: `role` is the capture after "definition." or
// "reference." ("function", "class", "call", ...), `node` the captured node, `name` its @name.
struct Tag {
  std::string role;
  bool definition = true;
  TSNode node{};
  TSNode name{};
};

// What the rules make of a definition tag.
struct Definition {
  std::string kind;
  std::string name;
  std::vector<std::string> qualifier;  // written scopes: C++ `Cls::m`, a Go method's receiver type
  TSNode host{};                       // the node whose lines, signature and doc the symbol takes
  bool opens_scope = false;            // names inside the host get this symbol's fqn as prefix
  bool unscoped = false;               // no enclosing scope adds to its fqn (a C++ macro)
  bool is_test = false;
};

// The path from the root to the node being visited.
struct Frame {
  TSNode node{};
  std::string scope;  // the fqn part this node adds for what it holds (namespace, class)
  std::size_t symbol = static_cast<std::size_t>(-1);  // index into ParsedFile::symbols
  TSNode doc_first{}, doc_last{};                     // the comments right before this node, if any
  // for the children: the comment run being collected and the last non-comment (its end row is
  // read only when a comment follows: most nodes never need it)
  TSNode run_first{}, run_last{};
  TSNode last_code{};
};

// A call site waiting for the whole file to be read before it is resolved.
struct PendingCall {
  TSNode call{};
  TSNode callee{};
  std::size_t caller = 0;  // symbol index; 0 is the module
};

class Extraction {
 public:
  Extraction(const utils::Language& language, std::string_view path, std::string_view module,
             std::string_view content);
  virtual ~Extraction() = default;
  Extraction(const Extraction&) = delete;
  Extraction& operator=(const Extraction&) = delete;

  ParsedFile run();

 protected:
  static constexpr std::size_t NONE = static_cast<std::size_t>(-1);

  // The text the grammar parses; by default the source. A language may blank what its grammar
  // misreads, byte for byte, so that every node still points into the source.
  virtual std::string_view parse_input() { return src_; }
  // The compiled query tags come from; by default the language's query files as one.
  virtual const TSQuery* tag_query() const;
  // Every match of the query, before it is read as a tag: true when the rules took it whole (a
  // match of their own captures), so it names no tag.
  virtual bool take(const TSQueryMatch& /*match*/) { return false; }
  // Once every match is read, before the walk.
  virtual void matches_read() {}
  virtual std::optional<Definition> define(const Tag& tag) = 0;
  // After a definition tag became the symbol at `symbol` of ParsedFile::symbols.
  virtual void defined(std::size_t /*symbol*/, const Tag& /*tag*/) {}
  // The fqn part a node adds for its contents (a namespace), or empty.
  virtual std::string scope_of(TSNode /*node*/) { return {}; }
  // Every node once, in document order, after its definitions are recorded.
  virtual void visit(TSNode /*node*/) {}
  // Once the whole file is read, before its calls are resolved (bases known by name only then).
  virtual void finish() {}
  // Resolves one call site with the whole file known: target, fallbacks, evidence, scope.
  virtual void resolve(const PendingCall& pending, ParsedCall& call) = 0;
  // The fqn prefix of top-level names (Go: the package), or empty.
  virtual std::string top_prefix() const { return {}; }
  virtual std::string signature_of(TSNode host) const;
  // The source between two bytes on one line, whitespace collapsed, trailing `{`/`;` dropped.
  std::string flatten(std::uint32_t from, std::uint32_t to) const;
  // Comment node types (Java and Rust split line and block comments).
  virtual bool is_comment(TSNode n) const { return is(n, "comment"); }
  // Nodes between a doc comment and its definition that keep the comment attached (attributes).
  virtual bool keeps_doc(TSNode /*node*/) const { return false; }
  virtual std::string doc_text(std::string_view raw) const;
  // A symbol's docstring: by default the comments right before its host (`frame`).
  virtual std::optional<std::string> docstring_of(TSNode host, const Frame& frame) const;
  // Symbols whose body counts as the caller of the calls inside it.
  virtual bool is_callable(const ParsedSymbol& s) const;

  std::string_view text(TSNode n) const;
  std::string field_text(TSNode n, const char* field) const;
  static std::int64_t line(TSNode n) { return ts_node_start_point(n).row + 1; }
  // The last line a node covers; one ending at a line's start ends on the line before.
  static std::int64_t end_line(TSNode n) {
    auto end = ts_node_end_point(n);
    return end.column == 0 && end.row > ts_node_start_point(n).row ? end.row : end.row + 1;
  }
  static bool is(TSNode n, const char* type);
  // Records a call site for resolve(), attributed to the innermost callable around it.
  void add_call(TSNode call, TSNode callee);
  // The innermost callable symbol around the node being visited; 0 (the module) when none.
  std::size_t current_callable() const;
  // The innermost frame (below the current node) of one of the given type, or NONE.
  std::size_t frame_of_type(const char* type) const;
  // The dotted scope prefix of a symbol (namespaces, classes, qualifier), "" at top level.
  const std::string& prefix_of(std::size_t symbol) const { return prefixes_[symbol]; }
  static std::string join(std::string_view a, std::string_view b);

  const utils::Language& language_;
  std::string path_;
  std::string module_;
  std::string_view src_;
  TSNode root_{};
  ParsedFile out_;
  std::vector<Frame> frames_;
  std::unordered_map<std::string, std::size_t> defined_;  // fqn -> first symbol index

 private:
  void collect_tags();
  void enter(TSNode node);
  void define_symbol(const Tag& tag);

  std::unordered_map<const void*, std::vector<Tag>> tags_;  // by node id
  std::vector<std::string> prefixes_;
  std::vector<PendingCall> pending_;
};

}  // namespace orvane_tamsel::indexer::tagged
