int putchar(int c);
