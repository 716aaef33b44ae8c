#include "orvane_tamsel/indexer/indexer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_meaning.h"
#include "orvane_tamsel/indexer/extract.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/meaning/meaning_pass.h"
#include "orvane_tamsel/indexer/ordered_parse.h"
#include "orvane_tamsel/indexer/reference_docs/reference_pass.h"
#include "orvane_tamsel/indexer/walker.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::indexer {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t BINARY_PROBE = 8192;
// How far parsing may run ahead of writing: parsed files wait in memory until written in order.
constexpr std::size_t PARSE_AHEAD = 64;

std::string content_hash(std::string_view text) {
  std::uint64_t h = 1469598103934665603ULL;  // FNV-1a: stable across builds and runs
  for (unsigned char c : text) {
    h ^= c;
    h *= 1099511628211ULL;
  }
  char buf[17];
  std::snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(h));
  return buf;
}

struct Outcome {
  enum Kind { skip, touch, put } kind = skip;
  std::string reason;
  FileState state;
  std::optional<ParsedFile> parsed;
};

// Compiles a language's queries (tens of ms for Python) on a thread of its own, once per process:
// for a first build while the index is created, for an update from the moment its first file of
// the language turns out to need parsing, so that parsing it (which needs no query) and the
// compiling overlap.
class LanguagePreparer {
 public:
  void start(const utils::Language& language) {
    static std::mutex mutex;
    static std::set<const utils::Language*> started;
    std::lock_guard lock(mutex);
    if (!started.insert(&language).second) return;
    threads_.emplace_back([&language] { prepare_extraction(language); });
  }

 private:
  std::vector<std::jthread> threads_;
};

// A file to read: new, changed on disk, or renamed by a package folder appearing or vanishing.
struct Job {
  const WalkedFile* file;
  std::string module;
  bool renamed = false;  // the content may be unchanged, but its symbols' fqns are not
};

Outcome read_and_parse(const fs::path& root, const Job& job,
                       const std::map<std::string, FileState>& states, LanguagePreparer& preparer) {
  const WalkedFile& f = *job.file;
  Outcome out;
  out.state.mtime_ns = f.mtime_ns;
  out.state.size = f.size;
  std::ifstream in(root / f.path, std::ios::binary);
  if (!in) {
    out.reason = "unreadable";
    return out;
  }
  // One allocation of the size the walk saw; a file that grew since is read to its end.
  std::string content(static_cast<std::size_t>(std::max<std::int64_t>(f.size, 0)), '\0');
  in.read(content.data(), static_cast<std::streamsize>(content.size()));
  content.resize(static_cast<std::size_t>(in.gcount()));
  if (in.gcount() == static_cast<std::streamsize>(f.size)) {
    in.clear();
    content.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  if (in.bad()) {
    out.reason = "unreadable";
    return out;
  }
  if (std::memchr(content.data(), 0, std::min(content.size(), BINARY_PROBE)) != nullptr) {
    out.reason = "binary";
    return out;
  }
  if (!utils::is_valid_utf8(content)) {
    out.reason = "not utf-8";
    return out;
  }
  out.state.size = static_cast<std::int64_t>(content.size());
  out.state.hash = content_hash(content);
  out.state.module = job.module;
  if (auto s = states.find(f.path);
      !job.renamed && s != states.end() && s->second.hash == out.state.hash) {
    out.kind = Outcome::touch;
    return out;
  }
  preparer.start(*f.language);
  try {
    out.parsed = extract(*f.language, f.path, job.module, content);
    out.kind = Outcome::put;
  } catch (const std::exception&) {
    out.reason = "parse failed";
  }
  return out;
}

void finish_report(IndexReport& report, const index::IndexStats& stats,
                   std::chrono::steady_clock::time_point started) {
  report.indexed = stats.files;
  report.symbols = stats.symbols;
  report.calls = stats.calls;
  report.unresolved_calls = stats.unresolved_calls;
  report.skipped = stats.skipped;
  report.documented = stats.documented;
  report.documented_linked = stats.documented_linked;
  report.documented_missed = stats.documented_missed;
  report.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

// The walk's files paired with what the index holds: what to read, and what is gone.
struct Plan {
  std::vector<Job> work;
  std::vector<std::string> removed;  // indexed files that are gone, in path order
};

// Both lists are sorted by path: one pass pairs them, with no lookups (a tree of thousands of
// files shows the string compares).
Plan plan(const WalkResult& walked, const std::map<std::string, FileState>& states,
          const std::string& root_name) {
  Plan p;
  auto s = states.begin();
  for (const auto& f : walked.files) {
    for (; s != states.end() && s->first < f.path; ++s) p.removed.push_back(s->first);
    auto module = module_name(*f.language, f.path, walked.packages, root_name);
    bool known = s != states.end() && s->first == f.path;
    if (!known || s->second.mtime_ns != f.mtime_ns || s->second.size != f.size) {
      p.work.push_back({&f, std::move(module)});
    } else if (s->second.module != module) {
      p.work.push_back({&f, std::move(module), true});
    }
    if (known) ++s;
  }
  for (; s != states.end(); ++s) p.removed.push_back(s->first);
  return p;
}

// A first build compiles each language's queries while the index is created; a later run may
// parse nothing, so it compiles them only when a file needs them.
void prepare_languages(const fs::path& repository_root, const WalkResult& walked,
                       LanguagePreparer& preparer) {
  if (fs::exists(index::index_file(repository_root))) return;
  for (const auto& f : walked.files) preparer.start(*f.language);
}

// Parses the planned files on every core and writes them, in walk order, in one batch (a first
// build commits on the way, unlinked).
void write_changes(IndexWriter& writer, const fs::path& repository_root, Plan& plan,
                   const std::map<std::string, FileState>& states, LanguagePreparer& preparer,
                   std::map<std::string, std::string> skipped, IndexReport& report,
                   std::vector<std::string>& written, const IndexOptions& options,
                   const std::function<void(const Progress&)>& on_progress) {
  const auto& work = plan.work;
  OrderedParse<Outcome> parse(
      work.size(), PARSE_AHEAD,
      [&](std::size_t i) { return read_and_parse(repository_root, work[i], states, preparer); },
      [&](std::size_t i, std::int64_t done) {
        if (on_progress) {
          on_progress({done, static_cast<std::int64_t>(work.size()), work[i].file->path});
        }
      });
  try {
    writer.begin();
    std::int64_t since_commit = 0;
    auto committed = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < work.size(); ++i) {
      Outcome o = parse.take(i);
      const auto& path = work[i].file->path;
      if (o.kind == Outcome::skip) {
        skipped[path] = o.reason;
        if (states.count(path) != 0) plan.removed.push_back(path);
      } else if (o.kind == Outcome::touch) {
        writer.touch_file(path, o.state);
      } else {
        writer.put_file(*o.parsed, o.state);
        written.push_back(path);
        ++report.parsed;
      }
      auto now = std::chrono::steady_clock::now();
      if ((++since_commit >= options.batch_files ||
           std::chrono::duration<double>(now - committed).count() >= options.batch_seconds) &&
          writer.checkpoint()) {
        since_commit = 0;
        committed = now;
        if (options.after_batch) options.after_batch(static_cast<std::int64_t>(written.size()));
      }
    }
    std::sort(plan.removed.begin(), plan.removed.end());
    for (const auto& path : plan.removed) {
      writer.remove_file(path);
      ++report.removed;
    }
    parse.stop();
    writer.set_skipped(skipped);
    writer.commit();
  } catch (...) {
    parse.stop();
    writer.rollback();
    throw;
  }
}

IndexReport update_once(const fs::path& repository_root, const IndexOptions& options,
                        const std::function<void(const Progress&)>& on_progress) {
  auto started = std::chrono::steady_clock::now();
  if (!fs::is_directory(repository_root)) {
    throw std::runtime_error("not a directory: " + repository_root.string());
  }
  FolderCache folder_cache;
  auto cache_file = repository_root / ".tamsel" / "folders.cache";
  folder_cache.load(cache_file);
  auto walked = walk(repository_root, options.max_file_size, &folder_cache);
  LanguagePreparer preparer;
  prepare_languages(repository_root, walked, preparer);
  std::error_code ec;
  auto real_root = fs::canonical(repository_root, ec);
  std::string root_name = (ec ? repository_root : real_root).filename().string();
  IndexWriter writer(repository_root);
  if (folder_cache.changed()) folder_cache.save(cache_file);  // a lost cache costs one full walk
  auto states = writer.file_states();
  auto work = plan(walked, states, root_name);

  IndexReport report;
  report.folders = std::move(walked.folders);
  report.resumed = writer.unfinished();
  if (report.resumed) {
    auto parsed_again = std::count_if(work.work.begin(), work.work.end(), [&](const Job& j) {
      return states.count(j.file->path) != 0;
    });
    report.kept = static_cast<std::int64_t>(states.size() - work.removed.size()) - parsed_again;
    spdlog::info("resuming an interrupted first build of {}: {} files kept",
                 repository_root.string(), report.kept);
  }
  // Nothing changed: no write transaction, so a check before every request stays cheap.
  if (!report.resumed && work.work.empty() && work.removed.empty() &&
      writer.skipped() == walked.skipped &&
      !reference_docs::pages_changed(writer.database(), walked.pages)) {
    // An index written before the meaning vectors existed gets them on its first check.
    if (!index::meaning_generation(writer.database())) {
      meaning::update_meaning(writer.database(), repository_root, {});
    }
    finish_report(report, writer.stats(), started);
    return report;
  }
  // Code that changes may link page names elsewhere: what it was, to see what moved.
  std::vector<std::string> code_paths;
  bool had_pages = reference_docs::has_pages(writer.database());
  if (had_pages) {
    for (const auto& job : work.work) code_paths.push_back(job.file->path);
    code_paths.insert(code_paths.end(), work.removed.begin(), work.removed.end());
  }
  auto code_before = reference_docs::snapshot(writer.database(), code_paths);
  std::vector<std::string> written;
  write_changes(writer, repository_root, work, states, preparer, walked.skipped, report, written,
                options, on_progress);
  reference_docs::CodeChange code;
  if (had_pages) {
    code =
        reference_docs::compare(writer.database(), code_before,
                                reference_docs::snapshot(writer.database(), code_paths), written);
  }
  auto pages =
      reference_docs::update_reference_docs(writer.database(), repository_root, walked.pages, code);
  report.pages_read = pages.read;
  report.pages_passed_over = pages.passed_over;
  for (auto& path : pages.changed_files) written.push_back(std::move(path));
  meaning::update_meaning(writer.database(), repository_root, written);
  finish_report(report, writer.stats(), started);
  return report;
}

}  // namespace

IndexReport update_index(const fs::path& repository_root, const IndexOptions& options,
                         const std::function<void(const Progress&)>& on_progress) {
  try {
    return update_once(repository_root, options, on_progress);
  } catch (const index::SqliteError& e) {
    // Damage found only when a page is read mid-run: the files are the truth, so start over.
    if (!e.unreadable()) throw;
    spdlog::warn("the index of {} is damaged ({}): rebuilding it", repository_root.string(),
                 e.what());
  }
  discard_index(repository_root);
  return update_once(repository_root, options, on_progress);
}

std::string summary_line(const IndexReport& report) {
  std::ostringstream out;
  if (report.resumed) {
    out << "resumed an interrupted first build (" << report.kept << " files kept from it), ";
  }
  std::int64_t skipped = 0;
  for (const auto& [reason, n] : report.skipped) skipped += n;
  out << "indexed " << report.indexed << " files (" << report.parsed << " parsed, "
      << report.removed << " removed), skipped " << skipped;
  if (skipped > 0) {
    out << " (";
    bool first = true;
    for (const auto& [reason, n] : report.skipped) {
      out << (first ? "" : ", ") << reason << ": " << n;
      first = false;
    }
    out << ")";
  }
  char secs[32];
  std::snprintf(secs, sizeof secs, "%.2f", report.seconds);
  out << ", " << report.symbols << " symbols, " << report.calls << " calls resolved, "
      << report.unresolved_calls << " unresolved, ";
  if (report.documented > 0) {
    out << report.documented << " names in reference pages (" << report.documented_linked
        << " linked to a symbol, " << report.documented - report.documented_linked << " not found";
    auto missed = [&](const char* why) {
      auto it = report.documented_missed.find(why);
      return it == report.documented_missed.end() ? 0 : it->second;
    };
    if (missed("no code") + missed("member") > 0) {
      out << ": " << missed("no code") << " in modules without Python code, " << missed("member")
          << " members their class does not define";
    }
    out << "), ";
  }
  if (report.pages_read + report.pages_passed_over > 0) {
    out << report.pages_read << " pages read";
    if (report.pages_passed_over > 0) {
      out << " (" << report.pages_passed_over
          << " .txt files without Python directives passed over)";
    }
    out << ", ";
  }
  out << secs << " s";
  return out.str();
}

}  // namespace orvane_tamsel::indexer
