// Writing a file's call sites and imports: rows the same but for their line are kept.

#include <set>

#include "orvane_tamsel/indexer/types/receiver_stage.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer::writer {

// A receiver site's target, evidence and scopes are what evaluating its receiver found: its key
// is the receiver as parsed. A receiver backing a target adds to the target's key.
std::string site_key(std::optional<std::int64_t> caller, const std::string& evidence,
                     const std::string& target, const std::string& fallbacks,
                     const std::string& scopes, const std::string& receiver,
                     const std::string& member, const std::string& receiver_evidence,
                     std::int64_t arguments, const std::string& template_args,
                     const std::string& argument_kinds, const std::string& argument_names) {
  std::string key = caller ? std::to_string(*caller) : std::string("-");
  if (arguments >= 0) key.append("(").append(std::to_string(arguments));
  if (!receiver.empty()) {
    for (const auto* part : {&receiver, &member, &receiver_evidence}) {
      key.push_back('\x1e');
      key.append(*part);
    }
    if (receiver_evidence != types::BACKS_TARGET) return key;
  }
  for (const auto* part : {&evidence, &target, &fallbacks, &scopes, &template_args, &argument_kinds,
                           &argument_names}) {
    key.push_back('\x1f');
    key.append(*part);
  }
  return key;
}

namespace {

std::int64_t fallback_rank(const ParsedCall& call, std::size_t i) {
  auto base = i >= call.also ? ALSO_RANK : i >= call.equally_near ? EQUALLY_NEAR_RANK : 1;
  return static_cast<std::int64_t>(i) + base;
}

}  // namespace

void BatchWriter::write_sites(FileWrite& w) {
  for (const auto& call : w.file.calls) {
    bool typed = call.target.empty() && !call.receiver.empty();
    const std::string& receiver = call.receiver;
    // Without a receiver, a member says only what a call of unknown target names.
    const std::string& member =
        receiver.empty() && !call.target.empty() ? std::string() : call.member;
    const std::string receiver_evidence = typed              ? call.evidence
                                          : receiver.empty() ? std::string()
                                                             : types::BACKS_TARGET;
    std::optional<std::int64_t> caller = w.module_id;
    if (auto it = w.ids.find(call.caller_fqn); it != w.ids.end()) caller = it->second;
    std::string fallbacks;
    for (std::size_t i = 0; i < call.fallbacks.size(); ++i) {
      if (i) fallbacks.push_back(' ');
      fallbacks.append(std::to_string(fallback_rank(call, i)))
          .append(":")
          .append(call.fallbacks[i]);
    }
    if (!w.kept_sites.empty()) {
      std::set<std::string> modules(call.scope_modules.begin(), call.scope_modules.end());
      std::string scopes;
      for (const auto& m : modules) {
        if (!scopes.empty()) scopes.push_back(' ');
        scopes.append(m);
      }
      auto it =
          w.kept_sites.find(site_key(caller, call.evidence, call.target, fallbacks, scopes,
                                     receiver, member, receiver_evidence, call.arguments,
                                     call.template_args, call.argument_kinds, call.argument_names));
      if (it != w.kept_sites.end() && !it->second.empty()) {
        auto old = it->second.front();
        it->second.pop_front();
        if (old.line != call.line) {
          site_line.bind(1, call.line).bind(2, old.id).run();
          edge_line.bind(1, call.line).bind(2, old.id).run();
        }
        continue;
      }
    }
    ++unresolved_delta;  // linked at commit
    insert_site.bind(1, w.id)
        .bind(2, caller)
        .bind(3, call.line)
        .bind(4, call.evidence)
        .bind(5, call.target)
        .bind(6, receiver)
        .bind(7, member)
        .bind(8, receiver_evidence)
        .bind(9, call.arguments)
        .bind(10, call.template_args)
        .bind(11, call.argument_kinds)
        .bind(12, call.argument_names)
        .run();
    auto site = db.last_insert_id();
    if (!bulk) mark_relink.bind(1, site).run();
    if (typed) continue;  // its scope is what evaluating the receiver finds
    for (std::size_t i = 0; i < call.fallbacks.size(); ++i) {
      insert_fallback.bind(1, site)
          .bind(2, fallback_rank(call, i))
          .bind(3, call.fallbacks[i])
          .run();
    }
    for (const auto& module : call.scope_modules) insert_scope.bind(1, site).bind(2, module).run();
  }
  for (const auto& [key, sites] : w.kept_sites) {
    for (const auto& old : sites) {
      (old.resolved ? resolved_delta : unresolved_delta) -= 1;
      for (auto& st : delete_site) st.bind(1, old.id).run();
    }
  }
}

void BatchWriter::write_imports(FileWrite& w) {
  for (const auto& imp : w.file.imports) {
    if (!bulk) w.bound_now.emplace(w.file.module, imp.module, imp.name, imp.alias);
    if (auto it = w.kept_imports.find(imp.module + '\x1f' + imp.name + '\x1f' + imp.alias);
        it != w.kept_imports.end() && !it->second.empty()) {
      auto [id, line] = it->second.front();
      it->second.pop_front();
      if (line != imp.line) import_line.bind(1, imp.line).bind(2, id).run();
      continue;
    }
    insert_import.bind(1, w.id)
        .bind(2, imp.line)
        .bind(3, imp.module)
        .bind(4, imp.name)
        .bind(5, imp.alias)
        .run();
    if (!bulk) mark_reimport.bind(1, db.last_insert_id()).run();
  }
  for (const auto& [key, imports] : w.kept_imports) {
    for (const auto& [id, line] : imports) delete_import.bind(1, id).run();
  }
}

}  // namespace orvane_tamsel::indexer::writer
