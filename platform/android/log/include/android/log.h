#pragma once
// Host stand-in for Android's <android/log.h>: the subset the system uses.
//
// Every message becomes one line on stderr in logcat's "threadtime" form
//   MM-DD HH:MM:SS.mmm  PID  TID L TAG: message
// and is handed to any active hostlog::LogCapture. Messages longer than
// liblog's 1023-character formatting buffer are truncated, as on the device.
// All functions are thread-safe; lines from different threads never interleave.

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// Each returns the number of bytes of the message written (at least 1), or a
// negative errno value when the message could not be logged.
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));

#ifdef __cplusplus
}
#endif
