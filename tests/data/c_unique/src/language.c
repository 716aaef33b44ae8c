static int clamp(int n) { return n > 9 ? 9 : n; }

void lang_delete(void) { clamp(1); }

void reset(void) {}
