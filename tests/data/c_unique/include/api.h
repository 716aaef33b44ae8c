#ifndef API_H
#define API_H

int node_start(int n);
void lang_delete(void);

#endif
