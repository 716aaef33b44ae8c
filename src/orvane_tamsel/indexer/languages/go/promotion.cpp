#include "orvane_tamsel/indexer/languages/go/promotion.h"

#include <algorithm>
#include <tuple>

#include "orvane_tamsel/indexer/open_sites.h"

namespace orvane_tamsel::indexer::go {

namespace {

std::vector<std::string> split_bases(const std::string& text) {
  std::vector<std::string> out;
  for (std::size_t at = 0; at < text.size();) {
    auto end = text.find(' ', at);
    if (end == std::string::npos) end = text.size();
    if (end > at) out.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return out;
}

std::string joined(const std::vector<std::string>& bases) {
  std::string out;
  for (const auto& b : bases) out += (out.empty() ? "" : " ") + b;
  return out;
}

}  // namespace

Promotion::Promotion(index::Database& db) {
  struct_bases_ =
      db.prepare("SELECT fqn, bases FROM symbols WHERE file_id = ? AND kind = 'struct'");
  relink_members_ = db.prepare(
      "INSERT OR IGNORE INTO relink SELECT id FROM call_sites "
      "WHERE target_fqn > ?1 || '.' AND target_fqn < ?1 || '/' AND target_fqn <> ''");
  scopes_ = db.prepare("SELECT module FROM call_scopes WHERE site_id = ?");
  embedding_ = db.prepare(
      "SELECT s.bases, f.module FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
      "WHERE s.fqn = ? AND s.bases <> ''");
  bases_in_ = db.prepare(
      "SELECT s.bases FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
      "WHERE s.fqn = ? AND f.module = ? AND s.bases <> ''");
  method_in_ = db.prepare(
      "SELECT s.id FROM symbols s CROSS JOIN files f ON f.id = s.file_id "
      "WHERE s.fqn = ? AND f.module = ? AND s.kind <> 'module' "
      "ORDER BY s.start_line - s.end_line, s.id LIMIT 1");
  link_ = db.prepare("UPDATE call_sites SET callee_id = ? WHERE id = ?");
}

void Promotion::before_put_file(LinkingContext& ctx, const ParsedFile&, std::int64_t file_id) {
  embeds_before_.clear();
  if (ctx.full_build()) return;
  struct_bases_.bind(1, file_id);
  while (struct_bases_.step()) embeds_before_[struct_bases_.text(0)] = struct_bases_.text(1);
  struct_bases_.reset();
}

void Promotion::after_put_file(LinkingContext& ctx, const WrittenFile& written) {
  if (!ctx.full_build()) {
    packages_.insert(written.file.module);
    // a struct whose embeddings changed promotes other methods now
    for (const auto& s : written.file.symbols) {
      if (s.kind != "struct") continue;
      auto bases = joined(s.bases);
      auto before = embeds_before_.find(s.fqn);
      if (before == embeds_before_.end() ? !bases.empty() : before->second != bases)
        scopes_to_relink_.push_back(s.fqn);
      if (before != embeds_before_.end()) embeds_before_.erase(before);
    }
    for (const auto& [fqn, bases] : embeds_before_) {
      if (!bases.empty()) scopes_to_relink_.push_back(fqn);
    }
  }
  embeds_before_.clear();
}

void Promotion::before_remove_file(LinkingContext& ctx, std::int64_t file_id, const std::string&,
                                   const std::string& module) {
  if (ctx.full_build()) return;
  packages_.insert(module);
  struct_bases_.bind(1, file_id);
  while (struct_bases_.step()) {
    if (!struct_bases_.text(1).empty()) scopes_to_relink_.push_back(struct_bases_.text(0));
  }
  struct_bases_.reset();
}

// What appeared or vanished in a Go package may be promoted into a struct embedding its
// type: sites naming the struct's member are linked again, and so are those of the members
// of structs whose embeddings may have changed.
void Promotion::before_relink(LinkingContext& ctx) {
  for (const auto& fqn : scopes_to_relink_) relink_members_.bind(1, fqn).run();
  if (packages_.empty()) return;
  std::vector<std::pair<std::string, std::string>> affected;  // (head, tail)
  {
    auto st = ctx.database().prepare("SELECT head, tail FROM affected WHERE head <> ''");
    while (st.step()) affected.emplace_back(st.text(0), st.text(1));
  }
  if (affected.empty()) return;
  for (const auto& package : packages_) affect_package(ctx, package, affected);
}

void Promotion::affect_package(LinkingContext& ctx, const std::string& package,
                               const std::vector<std::pair<std::string, std::string>>& affected) {
  std::map<std::string, std::vector<std::string>> embeds;
  {
    auto structs = ctx.database().prepare(
        "SELECT s.fqn, s.bases FROM files f CROSS JOIN symbols s ON s.file_id = f.id "
        "WHERE f.module = ? AND s.bases <> ''");
    structs.bind(1, package);
    while (structs.step()) {
      auto& list = embeds[structs.text(0)];
      for (auto& b : split_bases(structs.text(1))) list.push_back(std::move(b));
    }
  }
  for (const auto& [type, direct] : embeds) {
    std::set<std::string> all(direct.begin(), direct.end());
    std::vector<std::string> level = direct;
    for (int depth = 1; depth < 3 && !level.empty(); ++depth) {
      std::vector<std::string> next;
      for (const auto& b : level) {
        if (auto e = embeds.find(b); e != embeds.end()) {
          for (const auto& inner : e->second) {
            if (all.insert(inner).second) next.push_back(inner);
          }
        }
      }
      level = std::move(next);
    }
    for (const auto& [head, tail] : affected) {
      if (all.count(head) != 0) ctx.affect(type + "." + tail);
    }
  }
}

void Promotion::after_linking(LinkingContext& ctx) {
  auto& db = ctx.database();
  auto open = open_relink_sites(db, "f.language = 'go'");
  if (open.empty()) return;
  // Most open sites name no embedding struct: a full index reads those structs' names once.
  std::unordered_map<std::string, bool> embeds;
  bool all_known = ctx.full_build();
  if (all_known) {
    auto st = db.prepare("SELECT DISTINCT fqn FROM symbols WHERE bases <> '' AND kind = 'struct'");
    while (st.step()) embeds.emplace(st.text(0), true);
  }
  for (const auto& [site, target] : open) {
    auto dot = target.rfind('.');
    if (dot == std::string::npos || dot == 0) continue;
    std::string type = target.substr(0, dot), method = target.substr(dot + 1);
    if (auto known = embeds.find(type); known != embeds.end() ? !known->second : all_known)
      continue;
    bool any = false;
    auto found = embeddings(site, type, any);
    if (!all_known) embeds.emplace(type, any);
    if (found.size() != 1) continue;  // no embedding, or one type name in two packages
    promote(site, found.front().first, found.front().second, method);
  }
}

std::vector<std::pair<std::string, std::string>> Promotion::embeddings(std::int64_t site,
                                                                       const std::string& type,
                                                                       bool& any) {
  std::vector<std::string> allowed;
  scopes_.bind(1, site);
  while (scopes_.step()) allowed.push_back(scopes_.text(0));
  scopes_.reset();
  std::vector<std::pair<std::string, std::string>> found;  // (bases, package module)
  embedding_.bind(1, type);
  while (embedding_.step()) {
    any = true;
    auto module = embedding_.text(1);
    bool in_scope = allowed.empty();
    for (const auto& k : allowed) {
      in_scope = in_scope || k == module ||
                 (!module.empty() && k.size() > module.size() && k.ends_with(module) &&
                  k[k.size() - module.size() - 1] == '.');
    }
    if (in_scope) found.emplace_back(embedding_.text(0), module);
  }
  embedding_.reset();
  return found;
}

// The nearest embedded type (breadth first, three levels) that has the method links the site.
void Promotion::promote(std::int64_t site, const std::string& bases, const std::string& module,
                        const std::string& method) {
  std::vector<std::string> level = split_bases(bases);
  std::set<std::string> seen(level.begin(), level.end());
  for (int depth = 0; depth < 3 && !level.empty(); ++depth) {
    std::set<std::int64_t> hits;
    for (const auto& base : level) {
      method_in_.bind(1, base + "." + method).bind(2, module);
      if (method_in_.step()) hits.insert(method_in_.integer(0));
      method_in_.reset();
    }
    if (hits.size() == 1) link_.bind(1, *hits.begin()).bind(2, site).run();
    if (!hits.empty()) break;
    std::vector<std::string> next;
    for (const auto& base : level) {
      bases_in_.bind(1, base).bind(2, module);
      while (bases_in_.step()) {
        for (auto& b : split_bases(bases_in_.text(0))) {
          if (seen.insert(b).second) next.push_back(b);
        }
      }
      bases_in_.reset();
    }
    level = std::move(next);
  }
}

void Promotion::end_batch(LinkingContext&) {
  packages_.clear();
  scopes_to_relink_.clear();
}

}  // namespace orvane_tamsel::indexer::go
