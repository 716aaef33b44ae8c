#include <stdio.h>
struct cart { int n; };
static int total(struct cart *c) { return c->n; }
int main(void) { struct cart c = {1}; printf("%d", total(&c)); }
