#ifndef LOG_H
#define LOG_H

void log_write(const char *msg);
void log_flush(void);

#define LOG_AT(sink, msg) sink(msg)
#define LOG(msg) LOG_AT(log_write, msg)
#define LOG_TWICE(msg) \
  do {                 \
    LOG(msg);          \
    log_flush();       \
  } while (0)
#define PING() PONG()
#define PONG() \
  PING();      \
  log_flush()
#define APPLY(log_write, x) log_write(x)
#define UNUSED_MACRO(x) never_called(x)

#endif
