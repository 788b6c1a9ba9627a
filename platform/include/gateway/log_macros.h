/// The one way this program writes a log record: fills in the two literal words, the source path
/// relative to the repository, the function and the line.
#pragma once

#include <gateway/log.h>

/// A module with a tag word of its own defines LOG_TAG before it includes anything.
#ifndef LOG_TAG
#define LOG_TAG "tag"
#endif

/// A source whose helpers log in the name of their one public function defines LOG_FUNCTION
/// likewise.
#ifndef LOG_FUNCTION
#define LOG_FUNCTION __func__
#endif

#define LOG_AT(level, ...) \
  log_print(level, "color", LOG_TAG, __FILE__, LOG_FUNCTION, __LINE__, __VA_ARGS__)

#define LOGD(...) LOG_AT(0, __VA_ARGS__)
#define LOGI(...) LOG_AT(1, __VA_ARGS__)
#define LOGW(...) LOG_AT(2, __VA_ARGS__)
#define LOGE(...) LOG_AT(3, __VA_ARGS__)
#define LOGR(...) LOG_AT(5, __VA_ARGS__)
