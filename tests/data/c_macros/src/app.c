#include "log.h"

void run(void) { LOG("start"); }

void twice(void) { LOG_TWICE("x"); }

void cycle(void) { PING(); }

void apply(void) { APPLY(other_fn, 1); }
