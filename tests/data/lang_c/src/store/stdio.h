/* The store's own stdio: found by "stdio.h", not by <stdio.h>. */
int undefined_helper(const void *c) { return c != 0; }
