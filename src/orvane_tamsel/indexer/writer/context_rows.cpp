#include "orvane_tamsel/indexer/writer/context_rows.h"

#include <vector>

#include "orvane_tamsel/indexer/doc_sentences.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer::writer {

namespace {

// A Go package's doc stands before its `package` clause in one of its files; a method is
// declared beside its type, not inside it, so its type is found by its fqn.
constexpr const char* GO_PACKAGE_DOC =
    "SELECT docstring FROM symbols WHERE fqn = ?1 AND kind = 'module' AND "
    "coalesce(docstring, '') <> '' ORDER BY length(docstring) DESC LIMIT 1";
constexpr const char* GO_TYPE =
    "SELECT t.name, coalesce(t.docstring, '') FROM symbols t JOIN files f ON f.id = t.file_id "
    "WHERE t.fqn = ?1 AND f.module = ?2 AND t.kind IN ('struct', 'interface', 'type') LIMIT 1";
constexpr const char* PYTHON_MODULE_DOC =
    "SELECT coalesce(docstring, '') FROM symbols WHERE file_id = ?1 AND kind = 'module' LIMIT 1";
constexpr const char* PYTHON_CLASS =
    "SELECT name, coalesce(docstring, '') FROM symbols WHERE id = ?1 AND kind = 'class'";

void add(std::string& to, const std::string& text) {
  if (text.empty()) return;
  if (!to.empty()) to += ' ';
  to += text;
}

}  // namespace

bool holds_context(const std::string& language, const std::string& kind) {
  if (kind == "module") return language == "go" || language == "python";
  if (language == "go") return kind == "struct" || kind == "interface" || kind == "type";
  return language == "python" && kind == "class";
}

ContextReader::ContextReader(index::Database& db) : db_(db) {}

const std::string& ContextReader::package_doc(const Place& s) {
  bool go = s.language == "go";
  auto key = go ? s.module : std::to_string(s.file_id);
  auto [it, added] = packages_.try_emplace(key);
  if (added) {
    auto st = db_.prepare(go ? GO_PACKAGE_DOC : PYTHON_MODULE_DOC);
    if (go) {
      st.bind(1, s.module);
    } else {
      st.bind(1, s.file_id);
    }
    if (st.step()) it->second = st.text(0);
  }
  return it->second;
}

const std::optional<ContextReader::Holder>& ContextReader::holder(const Place& s) {
  static const std::optional<Holder> none;
  std::string key;
  if (s.language == "go") {
    // pkg.Type.Method: a top-level name (pkg.Name) has no type.
    auto dot = s.fqn.rfind('.');
    if (dot == std::string::npos || s.fqn.find('.') == dot) return none;
    key = s.module + '\n' + s.fqn.substr(0, dot);
  } else {
    if (!s.parent_id) return none;
    key = std::to_string(*s.parent_id);
  }
  auto [it, added] = holders_.try_emplace(key);
  if (!added) return it->second;
  auto st = db_.prepare(s.language == "go" ? GO_TYPE : PYTHON_CLASS);
  if (s.language == "go") {
    st.bind(1, key.substr(s.module.size() + 1)).bind(2, s.module);
  } else {
    st.bind(1, *s.parent_id);
  }
  if (st.step()) it->second = Holder{st.text(0), st.text(1)};
  return it->second;
}

DocContext ContextReader::of(const Place& s) {
  DocContext out;
  if (s.language != "go" && s.language != "python") return out;
  const auto& package = package_doc(s);
  const auto& type = holder(s);
  add(out.mentions, sentences_naming(package, s.name));
  add(out.context, first_sentence(package));
  if (type) {
    add(out.mentions, sentences_naming(type->doc, s.name));
    add(out.context, first_sentence(type->doc));
    add(out.context, sentences_naming(package, type->name));
  }
  return out;
}

void BatchWriter::context_changed(const std::string& language, std::int64_t file_id,
                                  const std::string& module, const std::string& kind,
                                  const std::string& fqn) {
  if (language == "python") {
    context_files.insert(file_id);
  } else if (language == "go") {
    context_scopes.emplace(module, kind == "module" ? "" : fqn);
  }
}

// After the batch's new text rows: the rows kept whose enclosing docs changed take their new
// context (a removed file's rows are gone with it).
void BatchWriter::refresh_context() {
  if (context_files.empty() && context_scopes.empty()) return;
  constexpr const char* COLUMNS =
      "SELECT s.id, s.name, s.fqn, f.language, s.file_id, f.module, s.parent_id, t.mentions, "
      "t.context FROM files f JOIN symbols s ON s.file_id = f.id "
      "JOIN symbol_text t ON t.rowid = s.id WHERE s.kind <> 'module' AND ";
  ContextReader reader(db);
  auto update = db.prepare("UPDATE symbol_text SET mentions = ?, context = ? WHERE rowid = ?");
  // Written once the read is done: the read goes through the table the updates change.
  std::vector<std::pair<std::int64_t, DocContext>> changed;
  auto rewrite = [&](index::Statement& st) {
    while (st.step()) {
      auto name = st.text(1), fqn = st.text(2), language = st.text(3), module = st.text(5);
      auto now = reader.of({name, fqn, language, st.integer(4), module, st.optional_integer(6)});
      if (now.mentions != st.text(7) || now.context != st.text(8)) {
        changed.emplace_back(st.integer(0), std::move(now));
      }
    }
    st.reset();
  };
  auto in_file = db.prepare(std::string(COLUMNS) + "f.id = ?1");
  for (auto id : context_files) rewrite(in_file.bind(1, id));
  auto in_scope = db.prepare(std::string(COLUMNS) +
                             "f.module = ?1 AND (?2 = '' OR substr(s.fqn, 1, length(?2) + 1) = "
                             "?2 || '.')");
  for (const auto& [module, fqn] : context_scopes) rewrite(in_scope.bind(1, module).bind(2, fqn));
  for (const auto& [id, now] : changed) {
    update.bind(1, now.mentions).bind(2, now.context).bind(3, id).run();
  }
  context_files.clear();
  context_scopes.clear();
}

}  // namespace orvane_tamsel::indexer::writer
