#include "store/archive.h"

#include "store/journal.h"

namespace store {

namespace {

// The journal's type is deduced: the index cannot follow the calls made on it.
auto& opened(const std::unique_ptr<Journal>& journal) { return *journal; }

}  // namespace

Archive::Archive() : journal_(std::make_unique<Journal>()) {}
Archive::~Archive() = default;

int Archive::keep(int entry) {
  auto& journal = opened(journal_);
  journal.append(entry);
  return journal.flush();
}

}  // namespace store
