#pragma once

namespace store {

class Journal {
 public:
  void append(int entry);
  int flush();

 private:
  int pending_ = 0;
};

}  // namespace store
