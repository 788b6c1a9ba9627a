/// The gateway logger. On a gateway its own library stands behind this header; elsewhere the
/// embedded one does.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Opens the log of the program `name`, a literal. The three numbers belong to the gateway's own
/// logging library and are passed unchanged; the embedded logger ignores them. Any thread, once.
void log_init(const char* name, int target, int mode, int level);

/// Writes one record. Levels: 0 debug, 1 info, 2 warning, 3 error, 5 report. `color` and `tag` are
/// literal words, `path` (a literal), `function` and `line` say where the record was written; then
/// a printf format and its arguments. Works before log_init, drops the record after log_destroy.
/// Any thread, also inside a signal handler.
void log_print(int level, const char* color, const char* tag, const char* path,
               const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 7, 8)));

/// Closes the log; later records are dropped. Any thread.
void log_destroy(void);

#ifdef __cplusplus
}
#endif
