void other_log(const char *msg) { (void)msg; }

#define LOG(msg) other_log(msg)

void elsewhere(void) { LOG("here"); }
