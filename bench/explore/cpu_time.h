// The calling thread's CPU time in milliseconds: other work on a shared machine barely moves it.
#pragma once

#include <time.h>

inline double thread_cpu_ms() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}
