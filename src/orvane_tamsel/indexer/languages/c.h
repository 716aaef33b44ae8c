#pragma once
// C: file-less names for functions and types, #include as the evidence that a call's callee is
// visible. C++ builds on the same rules (languages/cpp.cpp).

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/indexer/languages/tagged.h"

namespace orvane_tamsel::indexer::c {

// The path's stem below its last `src` or `include` folder, dotted: `src/net/http.c` gives
// `net.http`; a header and its source file share a module.
std::string module_name(std::string_view path, const PackageDirs& packages,
                        std::string_view root_name);
// A `.h` file is C unless its text holds C++ syntax (namespaces, classes, templates, `::`);
// such a header is extracted, and stored, as C++.
ParsedFile extract(const utils::Language& language, std::string_view path, std::string_view module,
                   std::string_view content);
bool looks_like_cpp(std::string_view content);

class Rules : public tagged::Extraction {
 public:
  using Extraction::Extraction;

 protected:
  std::optional<tagged::Definition> define(const tagged::Tag& tag) override;
  std::string_view parse_input() override;
  void visit(TSNode node) override;
  void resolve(const tagged::PendingCall& pending, ParsedCall& call) override;
  std::string signature_of(TSNode host) const override;
  std::string declared_signature(TSNode host) const;
  // define() by the tag's role: functions and methods, structs/classes/unions, typedefs and
  // enums, file-level variables, macros.
  std::optional<tagged::Definition> define_function(const tagged::Tag& tag, tagged::Definition def);
  std::optional<tagged::Definition> define_record(const tagged::Tag& tag, tagged::Definition def);
  std::optional<tagged::Definition> define_type(const tagged::Tag& tag, tagged::Definition def);
  std::optional<tagged::Definition> define_variable(const tagged::Tag& tag, tagged::Definition def);
  std::optional<tagged::Definition> define_macro(const tagged::Tag& tag, tagged::Definition def);

  virtual bool scoped_types() const { return false; }  // C++: classes are scopes
  // The declaration or definition a function declarator belongs to, or a null node.
  TSNode function_host() const;
  bool is_header() const;
  bool is_include_guard(TSNode node, std::string_view name) const;
  // A function declarator in a block whose parameters are bare names, `T x(y);`: the grammar
  // reads a variable constructed from arguments as a local prototype.
  bool reads_as_construction(TSNode declarator) const;
  // The file's own module: the index adds the modules of the files it includes.
  std::vector<std::string> visible_modules() const;
  // The arguments a call expression passes; -1 for other sites (a construction).
  std::int64_t argument_count(TSNode call) const;
  // What the text shows of the arguments' kinds (ParsedCall::argument_kinds); `declared` gives
  // the kind of a plain name the caller declared, or 0.
  std::string argument_kinds(TSNode call,
                             const std::function<char(std::string_view)>& declared = {}) const;

  std::string blanked_;  // the source as parsed, when decorating macros were blanked
};

}  // namespace orvane_tamsel::indexer::c
