#pragma once
// A copy of a fixture repository, indexed, with the reads the language tests compare.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "index/tests_answer.h"
#include "indexer/temp_repo.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/indexer.h"

namespace indexer_test {

class IndexedFixture : public TempRepo {
 public:
  explicit IndexedFixture(const std::string& fixture) : TempRepo(fixture) { update(); }

  // Brings the index up to date with the tree (after write() or a removal) and opens it again:
  // a reference index() gave before does not outlive it.
  orvane_tamsel::indexer::IndexReport update() {
    auto report = orvane_tamsel::indexer::update_index(root());
    index_ = orvane_tamsel::index::open_repository(root());
    return report;
  }
  orvane_tamsel::index::Repository& index() const { return *index_; }

  // The symbol of an fqn; a test failure (and an empty symbol) when the index has none.
  orvane_tamsel::index::Symbol symbol(const std::string& fqn) const {
    auto found = index_->get_symbol_by_fqn(fqn);
    if (!found) ADD_FAILURE() << "no symbol " << fqn;
    return found.value_or(orvane_tamsel::index::Symbol{});
  }

  // The fqns of a symbol's evidence-backed callers or callees.
  std::set<std::string> callers(const std::string& fqn) const {
    return neighbours(fqn, orvane_tamsel::index::CALLER);
  }
  std::set<std::string> callees(const std::string& fqn) const {
    return neighbours(fqn, orvane_tamsel::index::CALLEE);
  }
  // The ranked tests of a file with their reasons, as the tools list them.
  orvane_tamsel::index::Json tests_of(const std::string& path) const {
    return tests_answer(*index_, path);
  }
  // The first column of an SQL query over the index file, row by row.
  std::vector<std::string> rows(const std::string& sql) const {
    namespace idx = orvane_tamsel::index;
    idx::Database db(idx::index_file(root()), idx::Database::Mode::read);
    auto st = db.prepare(sql);
    std::vector<std::string> out;
    while (st.step()) out.push_back(st.text(0));
    return out;
  }

 private:
  std::set<std::string> neighbours(const std::string& fqn,
                                   const orvane_tamsel::index::Relation& relation) const {
    namespace idx = orvane_tamsel::index;
    auto s = index_->get_symbol_by_fqn(fqn);
    if (!s) return {"<missing " + fqn + ">"};
    std::set<std::string> out;
    for (const auto& n : index_->evidence_neighbours({*s->id}, idx::TestFilter::include, 50,
                                                     std::vector<idx::Relation>{relation})) {
      out.insert(n.fqn.value_or(""));
    }
    return out;
  }

  std::unique_ptr<orvane_tamsel::index::Repository> index_;
};

}  // namespace indexer_test
