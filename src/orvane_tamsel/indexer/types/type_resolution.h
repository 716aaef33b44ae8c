#pragma once
// Evaluates a call's receiver type expression (see TypeExpr) against the facts of the whole
// index, and finds the member the call names on that type or, failing that, on its bases.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "orvane_tamsel/indexer/types/type_facts.h"

namespace orvane_tamsel::indexer::types {

// A TypeExpr taken apart.
struct ParsedTypeExpr {
  bool symbol = false;  // "S:" (what a symbol gives) rather than "T:" (a type)
  bool above = false;   // "B:": the type's bases, for a member looked up past the type itself
  std::string fqn;
  std::string result;  // "S:f#2": f's second result, kept among f's fields as "#2"
  int elements = 0;    // "T:[]fqn": a slice, array or map of fqn values, one "[]" per level
  std::vector<std::string> scope_modules;
  struct Step {
    std::string name;
    bool call = false;   // "/name()"
    std::string result;  // "/name()#2": the call's second result
  };
  std::vector<Step> steps;
};
std::optional<ParsedTypeExpr> parse_type_expr(std::string_view text);

// Where a receiver site links: the member's fqn, the module of the file holding it, and how it
// was known (see ParsedCall::evidence).
struct Resolution {
  std::string target;
  std::string module;
  std::string evidence;
};

// The evidence of a site whose receiver is one of several types: it links the member of each.
inline constexpr const char* UNION_EVIDENCE = "union";
// The evidence of a site left unlinked because its receiver may be one of too many types.
inline constexpr const char* UNION_TOO_WIDE = "union-too-wide";

class TypeResolver {
 public:
  explicit TypeResolver(TypeFacts& facts) : facts_(facts) {}

  // The member `member` of the type `receiver` evaluates to: one per type that has it when the
  // receiver is one of several (evidence UNION_EVIDENCE), none when any step is unknown or
  // ambiguous, or when the receiver may be one of more than MAX_UNION types (too_wide() then
  // says so). An empty `member` takes the receiver as methods read off values, joined by "&"
  // ("T:a.A/run&T:a.B/stop"). `evidence` is the extractor's word on how the receiver's type is
  // known (empty: derived from the expression). consulted() then holds every fqn looked up: the
  // resolution may change when a symbol with one of them comes, goes or changes.
  std::vector<Resolution> resolve(const TypeExpr& receiver, const std::string& member,
                                  const std::string& evidence);
  const std::set<std::string>& consulted() const { return consulted_; }
  bool too_wide() const { return too_wide_; }

  // How many expressions deep a type is followed (a result type naming another function's
  // result, a field of a field), and how many levels of bases a member is looked for on.
  static constexpr int MAX_DEPTH = 8;
  static constexpr int MAX_BASE_DEPTH = 4;
  // How many types a value may be one of for a call on it to link each type's member; past
  // that, linking every one would list more false callers than true ones.
  static constexpr std::size_t MAX_UNION = 4;
  // How many classes of one family a value may be one of for a call on it to name the family's
  // method rather than each class's (see family_member).
  static constexpr std::size_t MIN_FAMILY = 3;
  // How many symbol lookups one resolution may make: every type of a union is followed, and
  // unions within unions multiply the work; past this the receiver is unknown.
  static constexpr std::size_t MAX_WORK = 2000;

 private:
  struct Type {
    std::string fqn, module;
    int elements = 0;     // a container of `elements` levels around the named type
    bool above = false;   // members are looked up on its bases only (`super()`)
    bool common = false;  // the common base of alternatives ("+"), not the value's own class
    // A value that is one of these types (the returns "&" lists disagree), each without members.
    std::vector<Type> members{};
    bool wide = false;  // one of more than MAX_UNION types: known to be unknown
    bool operator<(const Type& o) const {
      return std::tie(fqn, module, elements, above, members, wide) <
             std::tie(o.fqn, o.module, o.elements, o.above, o.members, o.wide);
    }
    bool operator==(const Type& o) const {
      return std::tie(fqn, module, elements, above, members, wide) ==
             std::tie(o.fqn, o.module, o.elements, o.above, o.members, o.wide);
    }
  };
  // The value that is one of `types` (flattened, each once): the one itself when they agree.
  static Type one_of(const std::vector<Type>& types);
  struct Found {
    const TypeSymbol* symbol = nullptr;  // null: a field of `owner` (with `field_type`)
    std::string fqn;
    const TypeExpr* field_type = nullptr;
    std::string owner_module;
    bool inherited = false;
  };

  std::vector<const TypeSymbol*> find(const std::string& fqn,
                                      const std::vector<std::string>& scopes);
  // The symbols a start names, directly or (unscoped) through a re-export, which then
  // replaces `fqn`.
  std::vector<const TypeSymbol*> find_start(std::string& fqn,
                                            const std::vector<std::string>& scopes);
  std::optional<Type> evaluate(const TypeExpr& text, int depth, std::string* evidence);
  std::optional<Type> alternatives(std::string_view text, int depth, std::string* evidence);
  // "A+B": a value that is one of several types, typed by the nearest base they all share.
  std::optional<Type> common_base(std::string_view text, int depth);
  // The member `name` of the nearest base shared by every type of a union of at least
  // MIN_FAMILY types, or nothing.
  std::optional<Resolution> family_member(const Type& t, const std::string& name);
  // The classes the values "&" joins are each of alone (not a function's several results).
  std::vector<Type> own_classes(const TypeExpr& value);
  // A type and its bases, nearest first.
  std::vector<Type> lineage(const Type& t);
  std::optional<Type> evaluate(const ParsedTypeExpr& expr,
                               const std::vector<const TypeSymbol*>& candidates, int depth,
                               std::string* evidence);
  std::optional<Type> called_field(const TypeExpr& field, int depth);
  std::optional<Found> bound_method(const TypeExpr& field);
  std::optional<Type> type_of_symbol(const TypeSymbol& s, const std::string& fqn, int depth);
  std::optional<Type> as_type(const std::string& fqn, const std::string& module);
  std::optional<Found> member_of(const Type& t, const std::string& name);
  std::optional<Type> step(const Type& t, const ParsedTypeExpr::Step& s, int depth);

  TypeFacts& facts_;
  std::set<std::string> consulted_;
  bool too_wide_ = false;
  std::size_t work_ = 0;  // lookups of this resolution
};

}  // namespace orvane_tamsel::indexer::types
