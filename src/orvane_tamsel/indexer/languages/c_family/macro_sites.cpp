// C and C++ calls made through a macro: at each use of a function-like macro, a site (evidence
// "macro") for every function its body calls, macros it invokes expanded, resolved as a call
// written at the use would be. The use itself keeps its link to the macro.

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>

#include "orvane_tamsel/indexer/languages/c_family/linking.h"
#include "orvane_tamsel/indexer/languages/c_family/macro_bodies.h"
#include "orvane_tamsel/indexer/languages/c_family/qualified_names.h"

namespace orvane_tamsel::indexer::c_family {

namespace {

constexpr const char* MACRO_TABLES = R"sql(
CREATE TEMP TABLE IF NOT EXISTS macro_dropped(id INTEGER PRIMARY KEY);
-- A macro site of this batch that names what an earlier one of its file names (`rep`): linked
-- as that one is, not looked up again.
CREATE TEMP TABLE IF NOT EXISTS macro_copies(site_id INTEGER PRIMARY KEY, rep INTEGER NOT NULL);
)sql";

// The sites made for the uses linked again, or those in macro_dropped, with their rows.
constexpr const char* COPY_LINKS = R"sql(
UPDATE call_sites SET callee_id = (SELECT r.callee_id FROM macro_copies m
    CROSS JOIN call_sites r ON r.id = m.rep WHERE m.site_id = call_sites.id)
  WHERE id IN (SELECT site_id FROM macro_copies);
DELETE FROM macro_copies;
)sql";

constexpr const char* DROP_RELINKED_SITES = R"sql(
INSERT OR IGNORE INTO macro_dropped SELECT m.site_id FROM relink r
  CROSS JOIN macro_sites m ON m.origin = r.site_id;
)sql";
constexpr const char* DROP_SITES = R"sql(
DELETE FROM edges WHERE site_id IN (SELECT id FROM macro_dropped);
DELETE FROM call_fallbacks WHERE site_id IN (SELECT id FROM macro_dropped);
DELETE FROM call_scopes WHERE site_id IN (SELECT id FROM macro_dropped);
DELETE FROM call_sites WHERE id IN (SELECT id FROM macro_dropped);
DELETE FROM macro_sites WHERE site_id IN (SELECT id FROM macro_dropped);
DELETE FROM macro_dropped;
)sql";
// A body's call that reached nothing (a standard function, a member of a local) or only another
// macro (an object-like one) says nothing the use did not.
constexpr const char* DROP_UNLINKED = R"sql(
INSERT OR IGNORE INTO macro_dropped SELECT m.site_id FROM relink r
  CROSS JOIN macro_sites m ON m.site_id = r.site_id CROSS JOIN call_sites c ON c.id = m.site_id
  WHERE c.callee_id IS NULL OR (SELECT kind FROM symbols WHERE id = c.callee_id) = 'macro';
)sql";

// A member call typed by its receiver took the evidence of how the type was known: it is the
// macro's call all the same.
constexpr const char* MACRO_EVIDENCE = R"sql(
UPDATE call_sites SET evidence = 'macro' WHERE id IN (SELECT m.site_id FROM relink r
  CROSS JOIN macro_sites m ON m.site_id = r.site_id) AND receiver <> '' AND evidence <> 'macro';
)sql";

// The names a call written at the use would try, nearest first: a name looked up from the
// scope the use's own lookup started in (its target without the macro's name), outwards.
std::vector<std::string> candidates_for(std::string_view written, const std::string& use_target,
                                        const std::string& macro) {
  auto parts = split_qualified(written);
  if (parts.empty() || parts.front() == "std") return {};
  std::string name;
  for (const auto& p : parts) name += (name.empty() ? "" : ".") + p;
  if (written.starts_with("::")) return {name};
  std::string scope = use_target.size() > macro.size() + 1
                          ? use_target.substr(0, use_target.size() - macro.size() - 1)
                          : std::string();
  std::vector<std::string> out;
  for (;;) {
    out.push_back(scope.empty() ? name : scope + "." + name);
    if (scope.empty()) break;
    auto dot = scope.rfind('.');
    scope = dot == std::string::npos ? "" : scope.substr(0, dot);
  }
  return out;
}

std::string last_name(const std::string& fqn) {
  auto dot = fqn.rfind('.');
  return dot == std::string::npos ? fqn : fqn.substr(dot + 1);
}

// A member call of an expanded body on one of the use's arguments (see expand_calls), with the
// names the use passes (call_sites.argument_names): the receiver's type and the member's name,
// and the arguments it takes when the last pasted name is passed as a call (`F(_, _)`), else
// the body's with the kinds they show.
struct MemberCall {
  std::string receiver, member;
  std::int64_t arguments = -1;
  std::string kinds;
};
std::optional<MemberCall> member_call(const MacroCall& call, std::string_view passed,
                                      std::string_view use_kinds) {
  std::vector<std::pair<std::string_view, std::string_view>> args;  // (name, type)
  for (std::size_t at = 0; at <= passed.size();) {
    auto end = std::min(passed.find('\n', at), passed.size());
    auto line = passed.substr(at, end - at);
    auto tab = std::min(line.find('\t'), line.size());
    args.emplace_back(line.substr(0, tab), line.substr(std::min(tab + 1, line.size())));
    at = end + 1;
  }
  auto argument =
      [&](std::string_view marker) -> const std::pair<std::string_view, std::string_view>* {
    auto i = static_cast<unsigned char>(marker[1]) - 1u;
    return i < args.size() ? &args[i] : nullptr;
  };
  const auto& c = call.callee;
  const auto* receiver = argument(c);
  if (receiver == nullptr || receiver->second.empty() || c.size() < 4 || c[2] != '.') return {};
  MemberCall out{
      std::string(receiver->second), {}, call.arguments, argument_kinds_at_use(call, use_kinds)};
  for (std::size_t at = 3; at < c.size();) {
    if (c[at] != USE_ARGUMENT[0]) {
      out.member.push_back(c[at++]);
      continue;
    }
    if (at + 1 >= c.size()) return {};
    const auto* a = argument(std::string_view(c).substr(at, 2));
    if (a == nullptr || a->first.empty()) return {};
    auto name = a->first;
    out.arguments = call.arguments;
    out.kinds = argument_kinds_at_use(call, use_kinds);
    if (auto open = name.find('('); open != std::string_view::npos) {
      out.arguments = std::stoll(std::string(name.substr(open + 1)));
      out.kinds.clear();
      name = name.substr(0, open);
    }
    out.member += name;
    at += 2;
  }
  return out;
}

}  // namespace

void Linking::prepare_macros(index::Database& db) {
  db.exec(MACRO_TABLES);
  old_macros_ = db.prepare("SELECT name, params, calls FROM macros WHERE file_id = ?");
  clear_macros_ = db.prepare("DELETE FROM macros WHERE file_id = ?");
  insert_macro_ = db.prepare("INSERT INTO macros VALUES(?, ?, ?, ?)");
  drop_file_sites_ = db.prepare(
      "INSERT OR IGNORE INTO macro_dropped SELECT site_id FROM macro_sites WHERE "
      "file_id = ?");
}

// A file written again loses the sites made at its macro uses (made again at commit) and its
// macros, whose bodies are compared with the new ones in after_put_file.
void Linking::forget_macros(LinkingContext& ctx, std::int64_t file_id) {
  auto& db = ctx.database();
  drop_file_sites_.bind(1, file_id).run();
  db.exec(DROP_SITES);
  macros_before_.clear();
  old_macros_.bind(1, file_id);
  while (old_macros_.step()) {
    macros_before_[old_macros_.text(0)] += old_macros_.text(1) + '\x1f' + old_macros_.text(2);
  }
  old_macros_.reset();
  clear_macros_.bind(1, file_id).run();
}

// A macro that came, went or changed its body relinks the uses of the macros reaching it.
void Linking::store_macros(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id) {
  std::map<std::string, std::string> now;
  for (const auto& m : file.macros) {
    insert_macro_.bind(1, file_id).bind(2, m.name).bind(3, m.params).bind(4, m.calls).run();
    now[m.name] += m.params + '\x1f' + m.calls;
  }
  if (!ctx.full_build()) {
    for (const auto& [name, body] : now) {
      auto it = macros_before_.find(name);
      if (it == macros_before_.end() || it->second != body) changed_macros_.insert(name);
    }
    for (const auto& [name, body] : macros_before_) {
      if (now.count(name) == 0) changed_macros_.insert(name);
    }
  }
  macros_before_.clear();
}

void Linking::make_macro_sites(LinkingContext& ctx) {
  auto& db = ctx.database();
  if (!ctx.full_build() && changed_macros_.empty()) {
    auto st = db.prepare(
        "SELECT EXISTS (SELECT 1 FROM changed_files) OR EXISTS (SELECT 1 FROM relink r "
        "CROSS JOIN call_sites c ON c.id = r.site_id CROSS JOIN files f ON f.id = c.file_id "
        "WHERE f.language IN ('c', 'cpp'))");
    if (st.step() && st.integer(0) == 0) return;
  }
  std::deque<MacroBody> bodies;
  std::unordered_map<std::string, std::vector<const MacroBody*>> by_name;
  auto read = [&](index::Statement& st) {
    while (st.step()) {
      auto& b = bodies.emplace_back();
      b.file_id = st.integer(0);
      b.name = st.text(1);
      b.params = decode_params(st.text(2));
      b.calls = decode_calls(st.text(3));
      by_name[b.name].push_back(&b);
    }
    st.reset();
  };
  // A full build or a changed macro reads every body; an edit elsewhere only those its uses
  // name (a system's headers hold some 160k macros).
  bool every = ctx.full_build() || !changed_macros_.empty();
  auto named_st = db.prepare("SELECT file_id, name, params, calls FROM macros WHERE name = ?");
  std::set<std::string> asked;
  auto named = [&](const std::string& name) -> const std::vector<const MacroBody*>* {
    if (!every && asked.insert(name).second) {
      named_st.bind(1, name);
      read(named_st);
    }
    auto it = by_name.find(name);
    return it == by_name.end() ? nullptr : &it->second;
  };
  if (every) {
    auto st = db.prepare("SELECT file_id, name, params, calls FROM macros");
    read(st);
    if (bodies.empty()) return;
  }
  if (!ctx.full_build() && !changed_macros_.empty()) {
    // the macros whose expansion reaches a changed one, and the sites naming them
    std::set<std::string> reaching = changed_macros_;
    for (bool grew = true; grew;) {
      grew = false;
      for (const auto& b : bodies) {
        if (reaching.count(b.name) != 0) continue;
        for (const auto& c : b.calls) {
          if (reaching.count(c.callee) != 0 ||
              std::any_of(c.args.begin(), c.args.end(),
                          [&](const std::string& a) { return reaching.count(a) != 0; })) {
            grew = reaching.insert(b.name).second || grew;
            break;
          }
        }
      }
    }
    auto add = db.prepare(
        "INSERT OR IGNORE INTO relink SELECT id FROM call_sites WHERE target_fqn = ?1 "
        "UNION SELECT site_id FROM call_fallbacks WHERE fqn = ?1");
    for (const auto& name : reaching) add.bind(1, name).run();
  }
  changed_macros_.clear();

  // every use linked again is expanded again, or no longer, when its name is no macro now
  if (!ctx.full_build()) {
    db.exec(DROP_RELINKED_SITES);
    db.exec(DROP_SITES);
  }

  struct Use {
    std::int64_t id, file_id, caller_id;
    std::int64_t line;  // 0 for every use of a file's own
    std::string target, macro, kinds;
    std::int64_t at = 0;  // the use's line
    std::string names;    // call_sites.argument_names
  };
  std::vector<Use> uses;
  {
    auto st = db.prepare(
        // (a union: an OR of the two would read every site)
        "SELECT c.id, c.file_id, c.caller_id, c.line, c.target_fqn, c.argument_kinds, "
        "(SELECT kind FROM symbols WHERE id = c.caller_id) = 'module', c.argument_names FROM "
        "(SELECT site_id AS id "
        "FROM relink UNION SELECT s.id FROM changed_files f CROSS JOIN call_sites s ON "
        "s.file_id = f.id) u CROSS JOIN call_sites c ON c.id = u.id CROSS JOIN files g ON "
        "g.id = c.file_id WHERE c.evidence <> 'macro' AND c.target_fqn <> '' AND c.caller_id IS "
        "NOT NULL AND g.language IN ('c', 'cpp') ORDER BY c.file_id, c.line, c.id");
    while (st.step()) {
      auto macro = last_name(st.text(4));
      if (named(macro) == nullptr) continue;
      // a file's own uses (a test's registration) call from the file once: its first
      uses.push_back({st.integer(0), st.integer(1), st.integer(2),
                      st.integer(6) != 0 ? 0 : st.integer(3), st.text(4), std::move(macro),
                      st.text(5), st.integer(3), st.text(7)});
    }
  }
  if (uses.empty()) return;

  // What a file's #includes reach, nearest first (the order reach_includes walks them).
  auto targets_st = db.prepare(
      "SELECT target_file_id FROM imports WHERE file_id = ? AND target_file_id IS NOT NULL");
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> reached;
  auto reached_from = [&](std::int64_t file) -> const std::vector<std::int64_t>& {
    auto [it, fresh] = reached.try_emplace(file);
    if (!fresh) return it->second;
    std::set<std::int64_t> seen{file};
    std::vector<std::int64_t> level{file};
    it->second.push_back(file);
    for (int depth = 0; depth < MAX_INCLUDE_DEPTH && !level.empty(); ++depth) {
      std::vector<std::int64_t> next;
      for (auto f : level) {
        targets_st.bind(1, f);
        while (targets_st.step()) {
          auto t = targets_st.integer(0);
          if (seen.insert(t).second) next.push_back(t);
        }
        targets_st.reset();
      }
      it->second.insert(it->second.end(), next.begin(), next.end());
      level = std::move(next);
    }
    return it->second;
  };
  // The definitions of a macro a use in `file` sees: those of the file the name is written in,
  // else of the first file the use's includes reach that has one; a definition the use does not
  // reach is another program's, as a function's would be.
  auto definitions = [&](std::string_view name, std::int64_t written_in,
                         std::int64_t file) -> std::optional<std::vector<const MacroBody*>> {
    const auto* all = named(std::string(name));
    if (all == nullptr) return std::nullopt;
    auto in_file = [&](std::int64_t f) {
      std::vector<const MacroBody*> out;
      for (const auto* b : *all) {
        if (b->file_id == f) out.push_back(b);
      }
      return out;
    };
    if (auto own = in_file(written_in); !own.empty()) return own;
    for (auto f : reached_from(file)) {
      if (auto seen = in_file(f); !seen.empty()) return seen;
    }
    return std::vector<const MacroBody*>{};
  };

  auto insert_site = db.prepare(
      "INSERT INTO call_sites(file_id, caller_id, line, evidence, target_fqn, arguments, "
      "argument_kinds) VALUES(?, ?, ?, 'macro', ?, ?, ?)");
  auto insert_member_site = db.prepare(
      "INSERT INTO call_sites(file_id, caller_id, line, evidence, target_fqn, receiver, member, "
      "arguments, argument_kinds) VALUES(?, ?, ?, 'macro', '', ?, ?, ?, ?)");
  auto insert_fallback = db.prepare("INSERT OR IGNORE INTO call_fallbacks VALUES(?, ?, ?)");
  // A use's scopes are read once for all the sites made at it (a test's body may make dozens).
  auto scopes_st = db.prepare("SELECT module FROM call_scopes WHERE site_id = ?");
  auto insert_scope = db.prepare("INSERT OR IGNORE INTO call_scopes VALUES(?, ?)");
  auto mark_relink = db.prepare("INSERT OR IGNORE INTO relink VALUES(?)");
  auto insert_macro_site = db.prepare("INSERT INTO macro_sites VALUES(?, ?, ?, ?)");
  std::map<std::pair<std::int64_t, std::string>, std::vector<MacroCall>> expanded;
  auto insert_copy = db.prepare("INSERT INTO macro_copies VALUES(?, ?)");
  // the first site of a file with these names, this argument count and these argument kinds
  std::map<std::tuple<std::int64_t, std::vector<std::string>, std::int64_t, std::string>,
           std::int64_t>
      firsts;
  // A function using a macro on ten lines calls what it expands to from each: a site a line
  // (a use's callees are linked again together, by the macro's name or their file).
  std::set<
      std::tuple<std::int64_t, std::int64_t, std::string, std::string, std::int64_t, std::string>>
      made;
  for (const auto& u : uses) {
    std::optional<std::vector<std::string>> scopes;
    auto [it, fresh] = expanded.try_emplace({u.file_id, u.macro});
    if (fresh) {
      auto defs = definitions(u.macro, u.file_id, u.file_id);
      MacroLookup lookup = [&](std::string_view name, const MacroBody& from) {
        return definitions(name, from.file_id, u.file_id);
      };
      std::set<std::pair<std::string, std::int64_t>> seen;
      for (const auto* def : defs.value_or(std::vector<const MacroBody*>{})) {
        for (auto& c : expand_calls(*def, lookup)) {
          if (seen.insert({c.callee, c.arguments}).second) it->second.push_back(std::move(c));
        }
      }
    }
    for (const auto& call : it->second) {
      if (call.callee.starts_with(USE_ARGUMENT)) {
        auto m = member_call(call, u.names, u.kinds);
        if (!m || !made.emplace(u.caller_id, u.line, u.macro, m->receiver + "/" + m->member,
                                m->arguments, m->kinds)
                       .second)
          continue;
        // linked as a receiver site: its scope is what evaluating the type finds
        insert_member_site.bind(1, u.file_id)
            .bind(2, u.caller_id)
            .bind(3, u.at)
            .bind(4, m->receiver)
            .bind(5, m->member)
            .bind(6, m->arguments)
            .bind(7, m->kinds)
            .run();
        auto site = db.last_insert_id();
        mark_relink.bind(1, site).run();
        insert_macro_site.bind(1, site).bind(2, u.id).bind(3, u.file_id).bind(4, u.macro).run();
        continue;
      }
      auto names = candidates_for(call.callee, u.target, u.macro);
      // `EXPECT_DEATH(f(), "re")`: the literal picks the `const char*` overload of the body's call
      auto kinds = argument_kinds_at_use(call, u.kinds);
      if (names.empty() ||
          !made.emplace(u.caller_id, u.line, u.macro, names.front(), call.arguments, kinds).second)
        continue;
      insert_site.bind(1, u.file_id)
          .bind(2, u.caller_id)
          .bind(3, u.at)
          .bind(4, names.front())
          .bind(5, call.arguments)
          .bind(6, kinds)
          .run();
      auto site = db.last_insert_id();
      mark_relink.bind(1, site).run();
      insert_macro_site.bind(1, site).bind(2, u.id).bind(3, u.file_id).bind(4, u.macro).run();
      for (std::size_t i = 1; i < names.size(); ++i) {
        insert_fallback.bind(1, site).bind(2, static_cast<std::int64_t>(i)).bind(3, names[i]).run();
      }
      if (!scopes) {
        scopes.emplace();
        scopes_st.bind(1, u.id);
        while (scopes_st.step()) scopes->push_back(scopes_st.text(0));
        scopes_st.reset();
      }
      for (const auto& module : *scopes) insert_scope.bind(1, site).bind(2, module).run();
      auto [first, fresh_names] =
          firsts.try_emplace({u.file_id, names, call.arguments, kinds}, site);
      if (!fresh_names) insert_copy.bind(1, site).bind(2, first->second).run();
    }
  }
}

void Linking::copy_macro_links(index::Database& db) {
  db.exec(COPY_LINKS);
}

void Linking::drop_unlinked_macro_sites(LinkingContext& ctx) {
  auto& db = ctx.database();
  db.exec(MACRO_EVIDENCE);
  db.exec(DROP_UNLINKED);
  db.exec(DROP_SITES);
}

}  // namespace orvane_tamsel::indexer::c_family
