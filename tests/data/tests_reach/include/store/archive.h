#pragma once

#include <memory>

namespace store {

class Journal;

class Archive {
 public:
  Archive();
  ~Archive();
  int keep(int entry);

 private:
  std::unique_ptr<Journal> journal_;
};

}  // namespace store
