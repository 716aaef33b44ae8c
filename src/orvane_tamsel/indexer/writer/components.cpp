// Derived per-file tables: which package dominates, and the component of each tree-language file.

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/stats.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer::writer {

// Which package, if any, holds most production files (see split_component): a Python
// package, or a C or C++ project's src/<name>/. Go, Java and Rust components come from their
// folders and package trees instead.
void BatchWriter::update_dominant_package() {
  std::string dominant;
  {
    auto st = db.prepare(
        "SELECT component, count(*), (SELECT count(*) FROM files WHERE is_test = 0 AND "
        "language NOT IN ('go', 'java', 'rust')) FROM files WHERE is_test = 0 AND "
        "language NOT IN ('go', 'java', 'rust') GROUP BY component ORDER BY 2 DESC, 1 LIMIT 1");
    if (st.step() && st.integer(1) >= index::DOMINANT_SHARE * st.real(2)) dominant = st.text(0);
  }
  db.prepare("INSERT OR REPLACE INTO meta VALUES('dominant_package', ?)").bind(1, dominant).run();
}

// A file of a tree language is in the package right below its language's package root, which
// any file added or removed may move: the files of a touched language are placed again.
void BatchWriter::update_tree_components() {
  for (const auto& language : tree_languages) {
    std::vector<std::tuple<std::int64_t, std::string, std::string>> files;
    std::vector<std::string> modules;
    {
      auto st = db.prepare("SELECT id, module, component FROM files WHERE language = ?");
      st.bind(1, language);
      while (st.step()) {
        files.emplace_back(st.integer(0), st.text(1), st.text(2));
        modules.push_back(st.text(1));
      }
    }
    auto root = index::package_root(modules);
    auto set = db.prepare("UPDATE files SET component = ? WHERE id = ?");
    for (const auto& [id, module, component] : files) {
      if (module.empty()) continue;
      auto placed = index::component_below(module, root);
      if (placed != component) set.bind(1, placed).bind(2, id).run();
    }
  }
  tree_languages.clear();
}

}  // namespace orvane_tamsel::indexer::writer
