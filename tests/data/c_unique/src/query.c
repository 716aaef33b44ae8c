#include "api.h"

int query_run(int n) {
  lang_delete();
  reset();
  return node_start(n) + clamp(n);
}
