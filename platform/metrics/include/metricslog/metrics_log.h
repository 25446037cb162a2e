#pragma once
// Host stand-in for the device's metrics-logging call.
//
// Each call formats one record and appends it as one line to
//   data/metrics/metrics.log under the device root
// in the form "MM-DD HH:MM:SS.mmm PID PRIORITY TAG GROUP SCHEMA NUMBER PAYLOAD",
// and hands it to every active metricslog::MetricsCapture. Thread-safe.

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

// Returns 0 when the record was written, a negative errno value otherwise.
int __metrics_log_print_v2(int priority, const char* tag, const char* group, const char* schema,
                           int number, const char* fmt, ...) __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif
