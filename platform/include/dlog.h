/* Platform log: one formatted line per call, with a priority and a tag. */
#ifndef PLATFORM_DLOG_H_
#define PLATFORM_DLOG_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT = 1,
    DLOG_VERBOSE = 2,
    DLOG_DEBUG = 3,
    DLOG_INFO = 4,
    DLOG_WARN = 5,
    DLOG_ERROR = 6,
    DLOG_FATAL = 7,
    DLOG_SILENT = 8,
} log_priority;

/* Returns the number of bytes written, or a negative error code. */
int dlog_print(log_priority prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_DLOG_H_ */
