int twice(int x);
