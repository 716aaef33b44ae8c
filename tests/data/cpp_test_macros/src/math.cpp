int twice(int x) { return 2 * x; }
