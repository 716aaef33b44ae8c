#include "match/no_adl.h"

namespace match {
namespace user {

int use() {
  return Pointee(1) +
         Hidden();
}

}  // namespace user
}  // namespace match
