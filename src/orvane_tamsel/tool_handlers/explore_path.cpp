// The path route of explore: a file or folder by path, or a module by its dotted name.

#include <algorithm>

#include "orvane_tamsel/tool_handlers/explore_internal.h"
#include "orvane_tamsel/tool_handlers/next_steps.h"
#include "orvane_tamsel/workers/name_lookup.h"
#include "orvane_tamsel/workers/retrieval.h"

namespace orvane_tamsel::tool_handlers::detail {
namespace {

// Stem and extension by the POSIX rule: leading dots of the last component never start one.
std::pair<std::string, std::string> split_extension(const std::string& path) {
  auto slash = path.rfind('/');
  std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  auto dot = path.rfind('.');
  if (dot == std::string::npos || dot < start) return {path, ""};
  for (std::size_t i = start; i < dot; ++i)
    if (path[i] != '.') return {path.substr(0, dot), path.substr(dot)};
  return {path, ""};
}

bool ends_with(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

Draft& path(index::Repository& repository, Draft& draft, const std::string& target,
            const Depth& depth) {
  std::string normal = workers::index_path(target, repository.root());
  if (!normal.empty() && repository.get_file_by_path(normal))
    return file_answer(repository, draft, {normal}, depth);
  if (!normal.empty()) {
    auto [files, total] = repository.paths_under(normal, depth.listed);
    if (!files.empty()) {
      draft.blocks["files"] = files;
      draft.capped = total > static_cast<std::int64_t>(files.size());
      draft.steps.push_back(
          step("files", "Every indexed file under " + normal, Json{{"path", normal}}));
      return draft;
    }
    auto named = files_named(repository, normal, depth.listed);
    if (!named.empty()) return file_answer(repository, draft, named, depth);
  }
  Json suggestion = suggest_paths(Json::object(), repository, target, "symbols");
  // A file that is there but was left out: why, rather than only the nearest other paths.
  if (auto why = normal.empty() ? std::nullopt : repository.skip_reason(normal))
    draft.notes.push_back(normal + " is not indexed: " + *why);
  draft.facts["found"] = false;
  draft.facts["did_you_mean"] = suggestion.value("did_you_mean", Json());
  for (const auto& s : suggestion.value("next_steps", Json::array())) draft.steps.push_back(s);
  return draft;
}

Draft& file_answer(index::Repository& repository, Draft& draft,
                   const std::vector<std::string>& paths, const Depth& depth) {
  const std::string& head = paths.front();
  auto first = repository.get_file_by_path(head);
  std::vector<index::Symbol> symbols;
  if (first && first->id) {
    for (auto& s : repository.get_symbols_by_file(*first->id))
      if (workers::RETRIEVABLE_KINDS.count(s.kind)) symbols.push_back(std::move(s));
    std::stable_sort(symbols.begin(), symbols.end(), [](const auto& a, const auto& b) {
      return std::pair(a.start_line, a.id.value_or(0)) < std::pair(b.start_line, b.id.value_or(0));
    });
  }
  Json files = Json::array();
  for (std::size_t i = 0; i < paths.size() && i < static_cast<std::size_t>(depth.listed); ++i)
    files.push_back(paths[i]);
  draft.blocks["files"] = files;
  Json rows = Json::array();
  for (const auto& s : symbols) rows.push_back(symbol_row(s, head));
  draft.blocks["symbols"] = rows;
  draft.steps.push_back(step("file", "The imports and related files of " + head,
                             Json{{"action", "related"}, {"path", head}}));
  draft.steps.push_back(
      step("tests", "The tests of " + head, Json{{"action", "for_file"}, {"path", head}}));
  return draft;
}

std::vector<std::string> files_named(index::Repository& repository, const std::string& path,
                                     int limit) {
  if (repository.get_file_by_path(path)) return {path};
  auto [stem, extension] = split_extension(path);
  std::vector<std::string> out;
  for (auto& p : repository.paths_with_stem(stem, limit))
    if (ends_with(p, extension)) out.push_back(std::move(p));
  return out;
}

std::vector<std::string> module_paths(index::Repository& repository, const std::string& target,
                                      int limit) {
  std::string stem = workers::dotted(target);
  std::replace(stem.begin(), stem.end(), '.', '/');
  return repository.paths_with_stem(stem, limit);
}

}  // namespace orvane_tamsel::tool_handlers::detail
