#pragma once
// The core's process-wide log sink: the callback and the highest level
// registered with vemoRegisterLoggingCallback. Lines above that level, or
// with no callback registered, are dropped.
//
// Any thread may log or register at any time; the two values are atomics.

#include "vemocore/vemo_core.h"

namespace vemocore {

void setLogSink(VemoLogCallback callback, VemoLogLevel maxLevel);

// printf-style; the format begins with "%s:" and the logging function's name.
void coreLog(VemoLogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vemocore
