#include <gateway/discovery.h>
#include <gateway/log_macros.h>

void createThread_discovery(void) { LOGI("this platform has no discovery.\n"); }
