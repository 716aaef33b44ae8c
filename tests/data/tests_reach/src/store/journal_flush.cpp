#include "store/journal.h"

namespace store {

void Journal::append(int entry) { pending_ += entry; }

int Journal::flush() {
  int written = pending_;
  pending_ = 0;
  return written;
}

}  // namespace store
