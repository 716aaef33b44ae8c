#include "orvane_tamsel/indexer/index_writer.h"

#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/stats.h"
#include "orvane_tamsel/indexer/writer/batch_writer.h"

namespace orvane_tamsel::indexer {

struct IndexWriter::Impl : writer::BatchWriter {
  using BatchWriter::BatchWriter;
};

IndexWriter::IndexWriter(const std::filesystem::path& repository_root)
    : impl_(std::make_unique<Impl>(repository_root)) {}

IndexWriter::~IndexWriter() {
  try {
    impl_->rollback();
  } catch (...) {
    // the connection closes anyway, and SQLite discards the open transaction with it
  }
}

std::map<std::string, FileState> IndexWriter::file_states() {
  std::map<std::string, FileState> states;
  auto st = impl_->db.prepare("SELECT path, mtime_ns, size, hash, module FROM files ORDER BY path");
  while (st.step()) {
    states.emplace_hint(states.end(), st.text(0),
                        FileState{st.integer(1), st.integer(2), st.text(3), st.text(4)});
  }
  return states;
}

std::map<std::string, std::string> IndexWriter::skipped() {
  std::map<std::string, std::string> out;
  auto st = impl_->db.prepare("SELECT path, reason FROM skipped");
  while (st.step()) out[st.text(0)] = st.text(1);
  return out;
}

void IndexWriter::begin() {
  impl_->begin();
}

void IndexWriter::put_file(const ParsedFile& file, const FileState& state) {
  impl_->put_file(file, state);
}

void IndexWriter::touch_file(const std::string& path, const FileState& state) {
  impl_->ensure_batch();
  impl_->touch.bind(1, state.mtime_ns).bind(2, state.size).bind(3, state.hash).bind(4, path).run();
}

void IndexWriter::remove_file(const std::string& path) {
  impl_->remove_file(path);
}

void IndexWriter::set_skipped(const std::map<std::string, std::string>& path_to_reason) {
  impl_->ensure_batch();
  if (!impl_->bulk && skipped() == path_to_reason) return;  // the same files skipped as before
  impl_->db.exec("DELETE FROM skipped");
  auto st = impl_->db.prepare("INSERT OR REPLACE INTO skipped VALUES(?, ?)");
  for (const auto& [path, reason] : path_to_reason) st.bind(1, path).bind(2, reason).run();
}

bool IndexWriter::checkpoint() {
  return impl_->checkpoint();
}

bool IndexWriter::unfinished() {
  return index::build_unfinished(impl_->db);
}

void IndexWriter::commit() {
  impl_->commit();
}

void IndexWriter::rollback() {
  impl_->rollback();
}

index::Database& IndexWriter::database() {
  return impl_->db;
}

index::IndexStats IndexWriter::stats() {
  auto calls = impl_->read_stored_calls();
  auto symbols = impl_->read_stored_symbols();
  if (!calls || !symbols) return index::read_stats(impl_->db);
  index::IndexStats stats;
  auto st = impl_->db.prepare("SELECT count(*) FROM files");
  st.step();
  stats.files = st.integer(0);
  stats.symbols = *symbols;
  stats.calls = calls->first;
  stats.unresolved_calls = calls->second;
  auto skipped = impl_->db.prepare("SELECT reason, count(*) FROM skipped GROUP BY reason");
  while (skipped.step()) stats.skipped[skipped.text(0)] = skipped.integer(1);
  index::read_documented(impl_->db, stats);
  return stats;
}

}  // namespace orvane_tamsel::indexer
