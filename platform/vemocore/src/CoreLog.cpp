#include "CoreLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace vemocore {

namespace {

std::atomic<VemoLogCallback> gCallback{nullptr};
std::atomic<int> gMaxLevel{0};

}  // namespace

void setLogSink(VemoLogCallback callback, VemoLogLevel maxLevel) {
    gMaxLevel.store(static_cast<int>(maxLevel));
    gCallback.store(callback);
}

void coreLog(VemoLogLevel level, const char* format, ...) {
    const VemoLogCallback callback = gCallback.load();
    if (callback == nullptr || static_cast<int>(level) > gMaxLevel.load()) {
        return;
    }
    char line[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    callback(level, line);
}

}  // namespace vemocore
