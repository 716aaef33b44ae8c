#include "orvane_tamsel/index/sqlite_repository.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "orvane_tamsel/index/paths.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/similarity.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/stats.h"
#include "orvane_tamsel/index/term_scores.h"
#include "orvane_tamsel/utils/unicode.h"

namespace orvane_tamsel::index {

namespace {

// The most test files get_tests_for lists; total_count still counts them all.
constexpr int MAX_TESTS = 50;
// Fuzzy candidates read per wanted suggestion, before ranking by edit distance.
constexpr int CANDIDATES_PER_SUGGESTION = 8;
// Words whose counts and samples a reader keeps at most, per kind.
constexpr std::size_t MAX_KEPT = 20000;

// Production functions followed when tests reach a file through other code: the callers of the
// file, their callers, and theirs (re.compile reaches re/_parser.py three calls away). A hub
// (os.path.join) has thousands; the first ones say enough.
constexpr int MAX_REACH_FIRST = 400;
constexpr int MAX_REACH_SECOND = 1600;
constexpr int MAX_REACH_THIRD = 3200;

// The test files of a file (?1; its base name ?2, its module ?4) and their evidence, best first,
// at most ?3; see get_tests_for.
constexpr const char* TESTS_OF_FILE = R"sql(
  WITH target AS (SELECT id FROM symbols WHERE file_id = ?1),
  direct AS (
    SELECT e.file_id AS tf, e.site_id, e.callee_id, e.caller_id
    FROM target t JOIN edges e ON e.callee_id = t.id AND e.derived = 0
    JOIN symbols c ON c.id = e.caller_id
    WHERE c.is_test = 1 AND e.file_id <> ?1),
  calls AS (
    SELECT tf, count(DISTINCT callee_id) AS syms, count(DISTINCT site_id) AS sites
    FROM direct GROUP BY tf),
  helpers AS (SELECT DISTINCT caller_id AS id, tf AS hf FROM direct),
  via AS (
    SELECT e.file_id AS tf, count(DISTINCT e.site_id) AS sites,
           min(h.id) AS helper
    FROM helpers h JOIN edges e ON e.callee_id = h.id
    WHERE e.file_id <> h.hf GROUP BY e.file_id),
  headers AS (
    SELECT g.id FROM files g
    WHERE ?4 <> '' AND g.module = ?4 AND g.id <> ?1 AND g.language IN ('c', 'cpp')
    UNION SELECT d.file_id FROM declarations d WHERE d.def_file_id = ?1 AND d.file_id <> ?1),
  imported AS (
    SELECT tf, min(module) AS module FROM (
      SELECT i.file_id AS tf, i.module FROM imports i WHERE i.target_file_id = ?1
      UNION ALL
      SELECT i.file_id, i.module FROM target t JOIN imports i ON i.target_symbol_id = t.id
      UNION ALL
      SELECT i.file_id, i.module FROM headers h JOIN imports i ON i.target_file_id = h.id)
    GROUP BY tf),
  -- calls of a name only this file defines, on a receiver the index could not type
  unique_names AS (
    SELECT t.name FROM symbols t WHERE t.file_id = ?1 AND t.kind IN ('function', 'method')
      AND NOT EXISTS (SELECT 1 FROM symbols o WHERE o.name = t.name AND o.id <> t.id)),
  by_name AS (
    SELECT c.file_id AS tf, count(*) AS sites, min(c.member) AS name
    FROM unique_names u JOIN call_sites c ON c.member = u.name AND c.callee_id IS NULL
    JOIN symbols k ON k.id = c.caller_id AND k.is_test = 1
    WHERE NOT EXISTS (SELECT 1 FROM edges e WHERE e.site_id = c.id) GROUP BY c.file_id),
  named AS (SELECT id AS tf FROM files
            WHERE base IN ('test_' || ?2, ?2 || '_test', ?2 || '_unittest')),
  -- below, CROSS JOIN keeps the planner from scanning every edge for the few functions followed
  first_hop AS (
    SELECT id FROM (
      SELECT e.caller_id AS id FROM target t JOIN edges e ON e.callee_id = t.id
      JOIN symbols c ON c.id = e.caller_id
      WHERE e.file_id <> ?1 AND c.is_test = 0
      -- C and C++ code that includes the file's header calls it, though often through a pointer
      -- the index cannot follow (impl_->begin())
      UNION
      SELECT s.id FROM headers h JOIN imports i ON i.target_file_id = h.id
      JOIN files p ON p.id = i.file_id AND p.is_test = 0 AND p.id <> ?1
      JOIN symbols s ON s.file_id = p.id AND s.is_test = 0 AND s.kind IN ('function', 'method')
      WHERE p.id NOT IN (SELECT id FROM headers))
    LIMIT ?5),
  second_hop AS (
    SELECT DISTINCT e.caller_id AS id FROM first_hop h CROSS JOIN edges e ON e.callee_id = h.id
    JOIN symbols c ON c.id = e.caller_id
    WHERE e.file_id <> ?1 AND c.is_test = 0 LIMIT ?6),
  third_hop AS (
    SELECT DISTINCT e.caller_id AS id FROM second_hop h CROSS JOIN edges e ON e.callee_id = h.id
    JOIN symbols c ON c.id = e.caller_id
    WHERE e.file_id <> ?1 AND c.is_test = 0 LIMIT ?7),
  reached AS (
    SELECT id, min(hop) AS hop FROM (SELECT id, 1 AS hop FROM first_hop
                                     UNION ALL SELECT id, 2 FROM second_hop
                                     UNION ALL SELECT id, 3 FROM third_hop) GROUP BY id),
  reach_calls AS (
    SELECT e.file_id AS tf, r.id, r.hop, count(DISTINCT e.site_id) AS sites
    FROM reached r CROSS JOIN edges e ON e.callee_id = r.id JOIN symbols c ON c.id = e.caller_id
    WHERE c.is_test = 1 GROUP BY e.file_id, r.id),
  -- the function named is the nearest, then the most called: the bare id is max()'s row
  reach AS (
    SELECT tf, count(*) AS fns, sum(sites) AS sites,
           4 - max((4 - hop) * 1048576 + min(sites, 1048575)) / 1048576 AS hop, id AS first
    FROM reach_calls GROUP BY tf),
  candidates AS (
    SELECT tf FROM calls UNION SELECT tf FROM via UNION SELECT tf FROM imported
    UNION SELECT tf FROM named UNION SELECT tf FROM reach UNION SELECT tf FROM by_name)
  SELECT f.id, f.path, coalesce(c.syms, 0), coalesce(c.sites, 0), coalesce(v.sites, 0),
         v.helper, i.module, n.tf IS NOT NULL, count(*) OVER (),
         coalesce(r.sites, 0), r.first, r.hop, coalesce(r.fns, 0), coalesce(b.sites, 0), b.name
  FROM candidates k JOIN files f ON f.id = k.tf AND f.is_test = 1
  LEFT JOIN calls c ON c.tf = k.tf LEFT JOIN via v ON v.tf = k.tf
  LEFT JOIN imported i ON i.tf = k.tf LEFT JOIN named n ON n.tf = k.tf
  LEFT JOIN reach r ON r.tf = k.tf LEFT JOIN by_name b ON b.tf = k.tf
  WHERE EXISTS (SELECT 1 FROM symbols x WHERE x.file_id = f.id
                AND x.kind IN ('function', 'method')
                AND (x.name GLOB '[Tt]est*' OR x.signature GLOB 'TEST*(*'
                     OR x.signature GLOB 'TYPED_TEST*(*'
                     -- JUnit, Rust and describe/it tests are marked, not named
                     OR x.is_test = 1 AND f.language NOT IN ('python', 'c', 'cpp')))
  ORDER BY 3 DESC, 4 DESC, 5 DESC, i.module IS NULL, coalesce(r.hop, 4), 13 DESC, 10 DESC,
           14 DESC, 8 DESC, f.path
  LIMIT ?3)sql";

constexpr const char* SYMBOL_COLUMNS =
    "s.id, s.fqn, s.name, s.kind, s.file_id, s.start_line, s.end_line, s.signature, s.docstring, "
    "s.is_test";

Symbol read_symbol(const Statement& st, int first = 0) {
  Symbol s;
  s.id = st.integer(first);
  s.fqn = st.text(first + 1);
  s.name = st.text(first + 2);
  s.kind = st.text(first + 3);
  s.file_id = st.integer(first + 4);
  s.start_line = st.integer(first + 5);
  s.end_line = st.integer(first + 6);
  s.signature = st.optional_text(first + 7);
  s.docstring = st.optional_text(first + 8);
  s.is_test = st.integer(first + 9) != 0;
  return s;
}

template <typename Ids>
std::string json_ids(const Ids& ids) {
  std::string text = "[";
  for (const auto& id : ids) {
    if (text.size() > 1) text += ",";
    text += std::to_string(id);
  }
  return text + "]";
}

std::string json_strings(const std::vector<std::string>& values) {
  return nlohmann::json(values).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// "src/app/" and "src/app" name the same folder; "" and "." the whole repository.
std::string folder_prefix(std::string folder) {
  while (folder.starts_with("./")) folder.erase(0, 2);
  while (!folder.empty() && folder.back() == '/') folder.pop_back();
  if (folder == ".") folder.clear();
  return folder.empty() ? folder : folder + "/";
}

// The upper bound of a range scan over every text that starts with the prefix.
std::string prefix_end(const std::string& prefix) {
  return prefix + "\xF4\x8F\xBF\xBF";
}

std::string short_name(const std::string& fqn, const std::string& module) {
  if (!module.empty() && fqn.size() > module.size() + 1 && fqn.starts_with(module + ".")) {
    return fqn.substr(module.size() + 1);
  }
  return fqn;
}

class SqliteRepository : public Repository {
 public:
  SqliteRepository(std::filesystem::path root, std::unique_ptr<Database> db)
      : root_(std::move(root)), db_(std::move(db)) {
    add_term_scores(db_->handle());
  }

  std::optional<FileRecord> get_file_by_path(const std::string& path) override {
    std::lock_guard lock(mutex_);
    auto st = db_->prepare(
        "SELECT id, path, language, size, line_count, is_test, module FROM files WHERE path = ?");
    st.bind(1, path);
    if (!st.step()) return std::nullopt;
    return FileRecord{st.integer(0), st.text(1),         st.text(2), st.integer(3),
                      st.integer(4), st.integer(5) != 0, st.text(6)};
  }

  // Path order (byte-wise); the total counts every indexed file under the folder.
  std::pair<std::vector<std::string>, std::int64_t> paths_under(const std::string& folder,
                                                                int limit) override {
    return paths_page(folder, 0, limit);
  }

  std::pair<std::vector<std::string>, std::int64_t> paths_page(const std::string& folder,
                                                               int offset, int limit) override {
    std::lock_guard lock(mutex_);
    auto prefix = folder_prefix(folder);
    auto end = prefix_end(prefix);
    std::pair<std::vector<std::string>, std::int64_t> result;
    auto st = db_->prepare(
        "SELECT path FROM files WHERE path >= ?1 AND path < ?2 ORDER BY path LIMIT ?3 OFFSET ?4");
    st.bind(1, prefix).bind(2, end).bind(3, std::max(limit, 0)).bind(4, std::max(offset, 0));
    while (st.step()) result.first.push_back(st.text(0));
    auto count = db_->prepare("SELECT count(*) FROM files WHERE path >= ?1 AND path < ?2");
    count.bind(1, prefix).bind(2, end);
    result.second = count.step() ? count.integer(0) : 0;
    return result;
  }

  // Shortest path first, then path order.
  std::vector<std::string> paths_with_stem(const std::string& stem, int limit) override {
    std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    if (stem.empty() || limit <= 0) return paths;
    auto st = db_->prepare(
        "SELECT path FROM files WHERE base = ?1 "
        "AND (stem = ?2 OR substr(stem, -length(?2) - 1) = '/' || ?2) "
        "ORDER BY length(path), path LIMIT ?3");
    st.bind(1, std::string(last_component(stem))).bind(2, stem).bind(3, limit);
    while (st.step()) paths.push_back(st.text(0));
    return paths;
  }

  // In line order.
  std::vector<Symbol> get_symbols_by_file(FileId file_id) override {
    std::lock_guard lock(mutex_);
    std::vector<Symbol> symbols;
    auto st = db_->prepare(std::string("SELECT ") + SYMBOL_COLUMNS +
                           " FROM symbols s WHERE s.file_id = ? ORDER BY s.start_line, s.id");
    st.bind(1, file_id);
    while (st.step()) symbols.push_back(read_symbol(st));
    return symbols;
  }

  // Never a module; production code first when several symbols share the name.
  std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    std::lock_guard lock(mutex_);
    auto st = db_->prepare(std::string("SELECT ") + SYMBOL_COLUMNS +
                           " FROM symbols s WHERE s.fqn = ? AND s.kind <> 'module' "
                           "ORDER BY s.is_test, s.id LIMIT 1");
    st.bind(1, fqn);
    if (!st.step()) return std::nullopt;
    return read_symbol(st);
  }

  // Code symbols only. exact_match: the name as written; otherwise the name in any case, or a
  // name that starts with it in any case. Order: production before test; then (inexact) the name
  // as written, the name in another case, then prefixes; then classes, functions, methods,
  // variables, other kinds; then the shorter fqn, the fqn, the id.
  SymbolSearch search_symbols(const std::vector<std::string>& names, bool exact_match,
                              int limit) override {
    std::lock_guard lock(mutex_);
    SymbolSearch result;
    if (names.empty()) return result;
    std::vector<std::string> folded;
    for (const auto& n : names) folded.push_back(utils::lower(n));
    std::string matches =
        exact_match
            ? "SELECT DISTINCT s.id, 0 AS closeness FROM json_each(?1) n "
              "JOIN symbols s ON s.name = n.value"
            : "SELECT s.id, min(CASE WHEN s.name = n.value THEN 0 WHEN s.name_folded = f.value "
              "THEN 1 ELSE 2 END) AS closeness FROM json_each(?1) n "
              "JOIN json_each(?2) f ON f.key = n.key "
              "JOIN symbols s ON s.name_folded >= f.value AND s.name_folded < f.value || "
              "char(1114111) GROUP BY s.id";
    std::string where = " WHERE s.kind <> 'module'";
    auto st = db_->prepare("WITH m AS (" + matches + ") SELECT " + SYMBOL_COLUMNS +
                           " FROM m JOIN symbols s ON s.id = m.id" + where +
                           " ORDER BY s.is_test, m.closeness, CASE s.kind WHEN 'class' THEN 0 "
                           "WHEN 'function' THEN 1 WHEN 'method' THEN 2 WHEN 'variable' THEN 3 "
                           "ELSE 4 END, length(s.fqn), s.fqn, s.id LIMIT ?3");
    st.bind(1, json_strings(names)).bind(3, std::max(limit, 0));
    if (!exact_match) st.bind(2, json_strings(folded));
    while (st.step()) result.symbols.push_back(read_symbol(st));
    auto count = db_->prepare("WITH m AS (" + matches +
                              ") SELECT count(*) FROM m JOIN symbols s ON s.id = m.id" + where);
    count.bind(1, json_strings(names));
    if (!exact_match) count.bind(2, json_strings(folded));
    result.total = count.step() ? count.integer(0) : 0;
    result.more = result.total > static_cast<std::int64_t>(result.symbols.size());
    return result;
  }

  std::map<SymbolId, std::string> get_file_paths_batch(
      const std::vector<Symbol>& symbols) override {
    std::vector<SymbolId> ids;
    for (const auto& s : symbols) ids.push_back(s.id.value_or(0));
    std::map<SymbolId, std::string> paths;
    for (auto& [id, pair] : symbols_with_paths(ids)) paths[id] = pair.second;
    return paths;
  }

  std::map<SymbolId, std::pair<Symbol, std::string>> symbols_with_paths(
      const std::vector<SymbolId>& ids) override {
    std::lock_guard lock(mutex_);
    std::map<SymbolId, std::pair<Symbol, std::string>> found;
    if (ids.empty()) return found;
    auto st = db_->prepare(std::string("SELECT ") + SYMBOL_COLUMNS +
                           ", f.path FROM json_each(?) j JOIN symbols s ON s.id = j.value "
                           "JOIN files f ON f.id = s.file_id");
    st.bind(1, json_ids(ids));
    while (st.step()) {
      auto s = read_symbol(st);
      found[*s.id] = {s, st.text(10)};
    }
    return found;
  }

  // `limit` counts records in total, over every asked id. A symbol reached from two asked ids, or
  // both as caller and callee, gives one record for each. Asked for test callers only, a test
  // calling the symbol's unique name on an untyped value counts too. Order: production before test,
  // more call sites first, then path, line, id, relation and asked id.
  std::vector<Neighbour> evidence_neighbours(
      const std::vector<SymbolId>& ids, TestFilter tests, int limit,
      const std::optional<std::vector<Relation>>& relations) override {
    std::lock_guard lock(mutex_);
    std::vector<Neighbour> result;
    if (ids.empty() || limit <= 0) return result;
    auto wants = [&relations](const Relation& r) {
      return !relations || std::find(relations->begin(), relations->end(), r) != relations->end();
    };
    auto st = db_->prepare(R"sql(
      WITH asked(id) AS (SELECT DISTINCT value FROM json_each(?1)),
      n AS (
        SELECT e.caller_id AS nid, e.callee_id AS of, 'caller' AS relation,
               count(DISTINCT e.site_id) AS sites
        FROM asked a JOIN edges e ON e.callee_id = a.id
        WHERE ?2 AND e.caller_id <> e.callee_id GROUP BY e.caller_id, e.callee_id
        UNION ALL
        SELECT e.callee_id, e.caller_id, 'callee', count(DISTINCT e.site_id)
        FROM asked a JOIN edges e ON e.caller_id = a.id
        WHERE ?3 AND e.caller_id <> e.callee_id GROUP BY e.callee_id, e.caller_id
        UNION ALL
        -- a test calling a function or method that nothing else in the repository is named
        -- like, on a value whose type the index could not follow (the call linked to nothing)
        SELECT c.caller_id, a.id, 'caller', count(*)
        FROM asked a JOIN symbols t ON t.id = a.id AND t.kind IN ('function', 'method')
        JOIN call_sites c ON c.member = t.name AND c.callee_id IS NULL
        WHERE ?6 AND NOT EXISTS (SELECT 1 FROM symbols o WHERE o.name = t.name AND o.id <> t.id)
          AND NOT EXISTS (SELECT 1 FROM edges e WHERE e.site_id = c.id)
        GROUP BY c.caller_id, a.id)
      SELECT s.id, s.fqn, s.name, s.kind, f.path, s.start_line, n.relation, n.of, s.is_test,
             n.sites
      FROM n JOIN symbols s ON s.id = n.nid JOIN files f ON f.id = s.file_id
      WHERE ?4 = 0 OR (?4 = 1 AND s.is_test = 0) OR (?4 = 2 AND s.is_test = 1)
      ORDER BY s.is_test, n.sites DESC, f.path, s.start_line, s.id, n.relation, n.of
      LIMIT ?5)sql");
    int filter = tests == TestFilter::include ? 0 : tests == TestFilter::exclude ? 1 : 2;
    st.bind(1, json_ids(ids))
        .bind(2, wants(CALLER))
        .bind(3, wants(CALLEE))
        .bind(4, filter)
        .bind(5, limit)
        .bind(6, tests == TestFilter::only && wants(CALLER));
    while (st.step()) {
      Neighbour n;
      n.id = st.integer(0);
      n.fqn = st.text(1);
      n.name = st.text(2);
      n.kind = st.text(3);
      n.path = st.text(4);
      n.line = st.integer(5);
      n.relation = st.text(6);
      n.of = st.integer(7);
      n.is_test = st.integer(8) != 0;
      n.call_sites = st.integer(9);
      result.push_back(std::move(n));
    }
    return result;
  }

  // Test files (those defining test functions; helpers and conftest only pass evidence on) ranked
  // by evidence: distinct symbols of the file that their code calls, then those
  // call sites, then calls through a test helper that calls the file, then imports of the file,
  // then calls of production code one, two or three calls away from the file (fewest hops, then
  // most such functions, then sites), then a name like test_<name>.py or <name>_test.py; ties by
  // path. A C or C++ source counts the includes of the headers it implements (the file of the
  // same module, those declaring what it defines) as imports of itself.
  TestsOfFile get_tests_for(const std::string& path) override {
    std::lock_guard lock(mutex_);
    TestsOfFile answer;
    auto file =
        db_->prepare("SELECT id, is_test, module, base, language FROM files WHERE path = ?");
    file.bind(1, path);
    if (!file.step() || file.integer(1) != 0) return answer;
    auto file_id = file.integer(0);
    auto module = file.text(2);
    auto base = file.text(3);
    // A C or C++ test includes the header the file implements, which may be of another module.
    bool by_header = file.text(4) == "c" || file.text(4) == "cpp";
    auto st = db_->prepare(TESTS_OF_FILE);
    st.bind(1, file_id).bind(2, base).bind(3, MAX_TESTS).bind(4, module);
    st.bind(5, MAX_REACH_FIRST).bind(6, MAX_REACH_SECOND).bind(7, MAX_REACH_THIRD);
    auto names = db_->prepare(R"sql(
      SELECT s.fqn FROM edges e JOIN symbols s ON s.id = e.callee_id
      JOIN symbols c ON c.id = e.caller_id
      WHERE e.file_id = ?1 AND s.file_id = ?2 AND e.derived = 0 AND c.is_test = 1
      GROUP BY s.id ORDER BY s.fqn LIMIT ?3)sql");
    auto helper = db_->prepare("SELECT fqn FROM symbols WHERE id = ?");
    std::string file_name(last_component(path));
    while (st.step()) {
      TestEvidence test;
      test.path = st.text(1);
      test.symbols_called = st.integer(2);
      test.call_sites = st.integer(3);
      test.helper_sites = st.integer(4);
      if (test.symbols_called > 0) {
        names.bind(1, st.integer(0)).bind(2, file_id).bind(3, TEST_EVIDENCE_NAMES);
        while (names.step()) test.called.push_back(short_name(names.text(0), module));
        names.reset();
      }
      if (test.helper_sites > 0) {
        helper.bind(1, st.integer(5));
        if (helper.step()) test.helper = helper.text(0);
        helper.reset();
      }
      // Direct calls say more; the path through other code is told only without them.
      if (test.symbols_called == 0 && test.helper_sites == 0) test.reach_sites = st.integer(9);
      if (test.reach_sites > 0) {
        test.reach_hops = st.integer(11);
        test.reach_functions = st.integer(12);
        helper.bind(1, st.integer(10));
        if (helper.step()) test.through = helper.text(0);
        helper.reset();
      }
      if (test.symbols_called == 0 && st.integer(13) > 0) {
        test.name_sites = st.integer(13);
        test.called_by_name = st.text(14);
      }
      // `from shop import cart` and `from shop.cart import Cart` both import shop.cart
      if (!st.is_null(6)) test.imports = module.empty() || by_header ? st.text(6) : module;
      if (st.integer(7) != 0) test.named_after = file_name;
      answer.tests.push_back(std::move(test));
      answer.total_count = st.integer(8);
    }
    return answer;
  }

  // The rules are component_of and split_component in index/paths.h.
  std::map<std::string, std::string> components_of(const std::vector<std::string>& paths) override {
    std::lock_guard lock(mutex_);
    std::map<std::string, std::string> found;
    if (paths.empty()) return found;
    std::string dominant;
    auto meta = db_->prepare("SELECT value FROM meta WHERE key = 'dominant_package'");
    if (meta.step()) dominant = meta.text(0);
    auto st = db_->prepare(
        "SELECT f.path, f.component, f.module FROM json_each(?) j JOIN files f ON f.path = j.value "
        "WHERE f.component IS NOT NULL AND f.component <> ''");
    st.bind(1, json_strings(paths));
    while (st.step()) {
      auto split = split_component(st.text(2), dominant);
      found[st.text(0)] = split.empty() ? st.text(1) : split;
    }
    return found;
  }

  std::filesystem::path root() const override { return root_; }

  std::vector<ScoredSymbol> search_text(const std::string& match, int limit,
                                        bool include_tests) override {
    std::lock_guard lock(mutex_);
    std::vector<ScoredSymbol> scored;
    if (match.empty() || limit <= 0) return scored;
    // The ranking reads the test flag of each match; bm25 weights live in the table's config.
    auto st = db_->prepare(
        "SELECT t.rowid, -t.rank FROM symbol_text t JOIN symbols s ON s.id = t.rowid "
        "WHERE symbol_text MATCH ?1 AND (?2 OR s.is_test = 0) ORDER BY t.rank LIMIT ?3");
    st.bind(1, match).bind(2, include_tests).bind(3, limit);
    while (st.step()) scored.push_back({st.integer(0), st.real(1)});
    return scored;
  }

  std::vector<TermShares> term_shares(const std::vector<std::string>& terms,
                                      bool include_tests) override {
    std::lock_guard lock(mutex_);
    std::vector<TermShares> rows;
    std::string match;
    for (const auto& t : terms) match += (match.empty() ? "\"" : " OR \"") + t + "\"";
    if (match.empty()) return rows;
    // The weights are the table's rank weights, so that the shares add up to its bm25.
    auto weights = rank_weights();
    if (!weights.empty()) weights = ", " + weights;
    auto st = db_->prepare("SELECT t.rowid, term_scores(symbol_text" + weights +
                           ") FROM symbol_text t JOIN symbols s ON s.id = t.rowid "
                           "WHERE symbol_text MATCH ?1 AND (?2 OR s.is_test = 0)");
    st.bind(1, match).bind(2, include_tests);
    while (st.step()) {
      auto bytes = st.blob(1);
      std::vector<double> shares(bytes.size() / sizeof(double));
      std::memcpy(shares.data(), bytes.data(), shares.size() * sizeof(double));
      rows.push_back({st.integer(0), std::move(shares)});
    }
    return rows;
  }

  std::map<SymbolId, std::int64_t> caller_counts(const std::vector<SymbolId>& ids) override {
    std::lock_guard lock(mutex_);
    std::map<SymbolId, std::int64_t> counts;
    if (ids.empty()) return counts;
    auto st = db_->prepare(
        "SELECT j.value, count(DISTINCT e.caller_id) FROM json_each(?) j "
        "JOIN edges e ON e.callee_id = j.value AND e.caller_id <> e.callee_id GROUP BY j.value");
    st.bind(1, json_ids(ids));
    while (st.step()) counts[st.integer(0)] = st.integer(1);
    return counts;
  }

  std::map<SymbolId, Importers> importers(const std::vector<SymbolId>& ids) override {
    std::lock_guard lock(mutex_);
    std::map<SymbolId, Importers> out;
    if (ids.empty()) return out;
    auto st = db_->prepare(
        "SELECT j.value, count(DISTINCT i.file_id), max(f.path = '__init__.py' OR "
        "f.path LIKE '%/__init__.py') FROM json_each(?) j "
        "JOIN imports i ON i.target_symbol_id = j.value JOIN files f ON f.id = i.file_id "
        "GROUP BY j.value");
    st.bind(1, json_ids(ids));
    while (st.step()) out[st.integer(0)] = {st.integer(1), st.integer(2) != 0};
    // `from .aggregates import *` in a package's file offers every top-level name of the module.
    auto star = db_->prepare(
        "SELECT j.value FROM json_each(?) j JOIN symbols s ON s.id = j.value "
        "JOIN files m ON m.id = s.file_id WHERE s.parent_fqn = m.module AND EXISTS ("
        "SELECT 1 FROM imports i JOIN files f ON f.id = i.file_id WHERE i.module = m.module AND "
        "i.name = '*' AND (f.path = '__init__.py' OR f.path LIKE '%/__init__.py'))");
    star.bind(1, json_ids(ids));
    while (star.step()) out[star.integer(0)].by_package = true;
    return out;
  }

  std::map<SymbolId, FileOrigin> file_origins(const std::vector<SymbolId>& ids) override {
    std::lock_guard lock(mutex_);
    std::map<SymbolId, FileOrigin> out;
    if (ids.empty()) return out;
    auto st = db_->prepare(
        "SELECT j.value, f.generated, f.builds_elsewhere FROM json_each(?) j "
        "JOIN symbols s ON s.id = j.value JOIN files f ON f.id = s.file_id "
        "WHERE f.generated OR f.builds_elsewhere");
    st.bind(1, json_ids(ids));
    while (st.step()) out[st.integer(0)] = {st.integer(1) != 0, st.integer(2) != 0};
    return out;
  }

  std::vector<std::string> names_matching_text(const std::string& match, int limit) override {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    if (match.empty() || limit <= 0) return names;
    keep_current();
    auto& kept = kept_.names_matching[std::to_string(limit) + ":" + match];
    if (kept) return *kept;
    auto st = db_->prepare(
        "SELECT s.name FROM symbol_text t JOIN symbols s ON s.id = t.rowid "
        "WHERE symbol_text MATCH ?1 AND s.is_test = 0 ORDER BY t.rank LIMIT ?2");
    st.bind(1, match).bind(2, limit);
    while (st.step()) names.push_back(st.text(0));
    kept = names;
    return names;
  }

  std::pair<std::map<std::string, std::int64_t>, std::int64_t> name_word_counts(
      const std::vector<std::string>& words) override {
    std::lock_guard lock(mutex_);
    std::pair<std::map<std::string, std::int64_t>, std::int64_t> counts;
    keep_current();
    // All symbols, modules too: close enough for a ratio, and counted from the smallest index.
    if (!kept_.symbols) {
      auto total = db_->prepare("SELECT count(*) FROM symbols");
      kept_.symbols = total.step() ? total.integer(0) : 0;
    }
    counts.second = *kept_.symbols;
    for (const auto& w : words) {
      if (w.find('"') != std::string::npos) continue;
      auto& kept = kept_.name_counts[w];
      if (!kept) {
        auto st = db_->prepare("SELECT count(*) FROM symbol_text WHERE symbol_text MATCH ?1");
        st.bind(1, "name : \"" + w + "\"");
        kept = st.step() ? st.integer(0) : 0;
      }
      counts.first[w] = *kept;
    }
    return counts;
  }

  std::optional<std::string> skip_reason(const std::string& path) override {
    std::lock_guard lock(mutex_);
    auto st = db_->prepare("SELECT reason FROM skipped WHERE path = ?1");
    st.bind(1, path);
    if (!st.step()) return std::nullopt;
    return st.text(0);
  }

  // Most alike first (edit distance to the path or its file name), then the shorter path.
  std::vector<std::string> similar_paths(const std::string& text, int limit) override {
    std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    if (text.empty() || limit <= 0) return paths;
    auto st = fuzzy_candidates("SELECT path FROM path_grams", "path_grams",
                               "SELECT path FROM files WHERE base >= ?1 AND base < ?1 || "
                               "char(1114111) ORDER BY base LIMIT ?2",
                               text, limit * CANDIDATES_PER_SUGGESTION);
    std::vector<std::pair<double, std::string>> ranked;
    while (st.step()) {
      auto p = st.text(0);
      double score =
          std::max(similarity(text, p), similarity(text, std::string(last_component(p))));
      ranked.emplace_back(score, p);
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
      if (a.first != b.first) return a.first > b.first;
      return a.second.size() != b.second.size() ? a.second.size() < b.second.size()
                                                : a.second < b.second;
    });
    for (const auto& r : ranked) {
      if (static_cast<int>(paths.size()) == limit) break;
      paths.push_back(r.second);
    }
    return paths;
  }

  // Code symbols whose names look like the name: most alike first, production first, then fqn.
  std::vector<Symbol> similar_symbols(const std::string& name, int limit) override {
    std::vector<SymbolId> ids;
    {
      std::lock_guard lock(mutex_);
      if (name.empty() || limit <= 0) return {};
      auto st = fuzzy_candidates("SELECT rowid FROM name_grams", "name_grams",
                                 "SELECT id FROM symbols WHERE name_folded >= ?1 AND "
                                 "name_folded < ?1 || char(1114111) AND kind <> 'module' "
                                 "ORDER BY name_folded LIMIT ?2",
                                 utils::lower(name), limit * CANDIDATES_PER_SUGGESTION);
      while (st.step()) ids.push_back(st.integer(0));
    }
    std::vector<Symbol> symbols;
    for (auto& [id, pair] : symbols_with_paths(ids)) symbols.push_back(pair.first);
    std::vector<double> score(symbols.size());
    std::vector<std::size_t> order(symbols.size());
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      order[i] = i;
      score[i] = similarity(name, symbols[i].name);
    }
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      if (score[a] != score[b]) return score[a] > score[b];
      if (symbols[a].is_test != symbols[b].is_test) return !symbols[a].is_test;
      return symbols[a].fqn < symbols[b].fqn;
    });
    std::vector<Symbol> result;
    for (auto i : order) {
      if (static_cast<int>(result.size()) == limit) break;
      result.push_back(symbols[i]);
    }
    return result;
  }

  // Production callers first, then by the site's path and line; callees in line order.
  std::vector<CallSite> call_sites(SymbolId id, const Relation& relation, int limit) override {
    std::lock_guard lock(mutex_);
    std::vector<CallSite> sites;
    if (limit <= 0 || (relation != CALLER && relation != CALLEE)) return sites;
    bool callers = relation == CALLER;
    std::string sql = R"sql(
      SELECT s.id, s.fqn, s.name, s.kind, sf.path, s.start_line, s.is_test, cf.path, e.line,
             CASE c.evidence WHEN 'macro' THEN 'macro ' ||
               coalesce((SELECT macro FROM macro_sites WHERE site_id = c.id), '')
               ELSE c.evidence END
      FROM edges e JOIN call_sites c ON c.id = e.site_id
      JOIN symbols s ON s.id = )sql";
    sql += callers ? "e.caller_id" : "e.callee_id";
    sql += " JOIN files sf ON sf.id = s.file_id JOIN files cf ON cf.id = e.file_id WHERE ";
    sql += callers ? "e.callee_id = ?1 ORDER BY s.is_test, cf.path, e.line"
                   : "e.caller_id = ?1 ORDER BY e.line, s.fqn";
    auto st = db_->prepare(sql + " LIMIT ?2");
    st.bind(1, id).bind(2, limit);
    while (st.step()) {
      CallSite site;
      site.other.id = st.integer(0);
      site.other.fqn = st.text(1);
      site.other.name = st.text(2);
      site.other.kind = st.text(3);
      site.other.path = st.text(4);
      site.other.line = st.integer(5);
      site.other.is_test = st.integer(6) != 0;
      site.other.relation = relation;
      site.other.of = id;
      site.other.call_sites = 1;
      site.site_path = st.text(7);
      site.site_line = st.integer(8);
      site.evidence = st.text(9);
      sites.push_back(std::move(site));
    }
    return sites;
  }

  // In line order.
  std::vector<ImportRecord> imports_of_file(const std::string& path, int limit) override {
    return imports_where("i.file_id = (SELECT id FROM files WHERE path = ?1)", path, limit,
                         "i.line, i.id");
  }

  // By importing path, then line.
  std::vector<ImportRecord> importers_of_file(const std::string& path, int limit) override {
    return imports_where(
        "i.id IN (SELECT i2.id FROM files t JOIN imports i2 ON i2.target_file_id = t.id "
        "WHERE t.path = ?1 UNION SELECT i3.id FROM files t JOIN symbols s ON s.file_id = t.id "
        "JOIN imports i3 ON i3.target_symbol_id = s.id WHERE t.path = ?1)",
        path, limit, "f.path, i.line");
  }

  std::vector<ImportRecord> importers_of_symbol(SymbolId id, int limit) override {
    return imports_where("i.target_symbol_id = ?1", id, limit, "f.path, i.line");
  }

  // Most call sites first, then path.
  std::vector<FileLink> linked_files(const std::string& path, const Relation& relation,
                                     int limit) override {
    std::lock_guard lock(mutex_);
    std::vector<FileLink> links;
    if (limit <= 0 || (relation != CALLER && relation != CALLEE)) return links;
    const char* sql =
        relation == CALLEE
            ? "SELECT o.path, count(DISTINCT e.callee_id), count(DISTINCT e.site_id) "
              "FROM files t JOIN edges e ON e.file_id = t.id JOIN symbols s ON s.id = e.callee_id "
              "JOIN files o ON o.id = s.file_id WHERE t.path = ?1 AND o.id <> t.id "
              "GROUP BY o.id ORDER BY 3 DESC, o.path LIMIT ?2"
            : "SELECT o.path, count(DISTINCT e.callee_id), count(DISTINCT e.site_id) "
              "FROM files t JOIN symbols s ON s.file_id = t.id JOIN edges e ON e.callee_id = s.id "
              "JOIN files o ON o.id = e.file_id WHERE t.path = ?1 AND o.id <> t.id "
              "GROUP BY o.id ORDER BY 3 DESC, o.path LIMIT ?2";
    auto st = db_->prepare(sql);
    st.bind(1, path).bind(2, limit);
    while (st.step()) links.push_back({st.text(0), st.integer(1), st.integer(2)});
    return links;
  }

  IndexStats stats() override {
    std::lock_guard lock(mutex_);
    return read_stats(*db_);
  }

 private:
  template <typename Key>
  std::vector<ImportRecord> imports_where(const std::string& where, const Key& key, int limit,
                                          const std::string& order) {
    std::lock_guard lock(mutex_);
    std::vector<ImportRecord> records;
    if (limit <= 0) return records;
    auto st = db_->prepare(
        "SELECT f.path, i.line, i.module, i.name, i.alias, t.path, i.target_symbol_id "
        "FROM imports i JOIN files f ON f.id = i.file_id "
        "LEFT JOIN files t ON t.id = i.target_file_id WHERE " +
        where + " ORDER BY " + order + " LIMIT ?2");
    st.bind(1, key).bind(2, limit);
    while (st.step()) {
      records.push_back({st.text(0), st.integer(1), st.text(2), st.text(3), st.text(4),
                         st.optional_text(5), st.optional_integer(6)});
    }
    return records;
  }

  // Rows sharing the most trigrams with the text, or for text too short for trigrams the rows
  // that start with it (an index range); bounded either way.
  Statement fuzzy_candidates(const std::string& select, const std::string& table,
                             const std::string& short_sql, const std::string& text, int limit) {
    auto points = utils::decode(utils::lower(text));
    std::set<std::string> grams;
    for (std::size_t i = 0; i + 3 <= points.size(); ++i) {
      auto gram = points.substr(i, 3);
      // the full-text query parser ends a string at a NUL; such a gram cannot match a path anyway
      if (gram.find(U'\0') == std::u32string::npos) grams.insert(utils::encode(gram));
    }
    if (grams.empty()) {  // shorter than a gram: match by prefix instead
      auto st = db_->prepare(short_sql);
      st.bind(1, text).bind(2, limit);
      return st;
    }
    std::string match;
    for (const auto& g : grams) {
      std::string quoted;
      for (char c : g) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
      match += (match.empty() ? "\"" : " OR \"") + quoted + "\"";
    }
    auto st = db_->prepare(select + " WHERE " + table + " MATCH ?1 ORDER BY rank LIMIT ?2");
    st.bind(1, match).bind(2, limit);
    return st;
  }

  // The column weights of the table's rank, bm25(...) in its config: ", w1, w2, ..." ("" when
  // it holds none, which weighs every column 1).
  std::string rank_weights() {
    keep_current();
    if (!kept_.rank_weights) {
      auto st = db_->prepare("SELECT v FROM symbol_text_config WHERE k = 'rank'");
      std::string rank = st.step() ? st.text(0) : "";
      auto open = rank.find('('), close = rank.rfind(')');
      std::string weights;
      if (rank.starts_with("bm25(") && close != std::string::npos && close > open + 1) {
        weights = rank.substr(open + 1, close - open - 1);
      }
      // Spliced into the query: numbers only.
      if (weights.find_first_not_of("0123456789.,- ") != std::string::npos) weights.clear();
      kept_.rank_weights = weights;
    }
    return *kept_.rank_weights;
  }

  // Forgets what was kept when another connection changed the index since; bounded, so a
  // long-running server does not grow without end.
  void keep_current() {
    auto st = db_->prepare("PRAGMA data_version");
    auto version = st.step() ? st.integer(0) : -1;
    if (version != kept_.version || kept_.name_counts.size() > MAX_KEPT ||
        kept_.names_matching.size() > MAX_KEPT) {
      kept_ = {};
      kept_.version = version;
    }
  }

  std::filesystem::path root_;
  std::unique_ptr<Database> db_;
  std::mutex mutex_;
  // What a question asks of the index word by word, kept for the next questions: the same
  // words come back, and each is a full-text scan.
  struct Kept {
    std::int64_t version = -1;
    std::optional<std::int64_t> symbols;
    std::optional<std::string> rank_weights;
    std::unordered_map<std::string, std::optional<std::int64_t>> name_counts;
    std::unordered_map<std::string, std::optional<std::vector<std::string>>> names_matching;
  } kept_;
};

}  // namespace

std::unique_ptr<Repository> open_repository(const std::filesystem::path& repository_root) {
  auto file = existing_index_file(repository_root);
  std::unique_ptr<Database> db;
  int version = 0;
  try {
    db = std::make_unique<Database>(file, Database::Mode::read);
    version = schema_version_of(*db);
    db->exec("PRAGMA query_only = 1");
    // A question reads the same few MB of index on every call; SQLite's default 2 MB page cache
    // would read them from the file again each time. Pages are allocated only when read.
    db->exec("PRAGMA cache_size = -32768");
  } catch (const SqliteError& e) {
    throw std::runtime_error("cannot read the index at " + file.string() + " (" + e.what() +
                             "): run tamsel index to rebuild it");
  }
  if (version == 0) {
    throw std::runtime_error("the index at " + file.string() + " is empty: run tamsel index first");
  }
  if (version != SCHEMA_VERSION) {
    throw std::runtime_error("the index at " + file.string() + " has schema version " +
                             std::to_string(version) + ", this tamsel reads version " +
                             std::to_string(SCHEMA_VERSION) + ": run tamsel index to rebuild it");
  }
  return std::make_unique<SqliteRepository>(repository_root, std::move(db));
}

}  // namespace orvane_tamsel::index
