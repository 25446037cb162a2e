#include "metricslog/metrics_log.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "MetricsRegistry.h"
#include "metricslog/MetricsCapture.h"
#include "platform/DeviceRoot.h"

namespace metricslog {
namespace {

std::mutex& registryMutex() {
    static std::mutex m;
    return m;
}

// Guarded by registryMutex(), which also serialises appends to the file.
std::vector<MetricsCapture*>& captures() {
    static std::vector<MetricsCapture*> c;
    return c;
}

}  // namespace

void registerCapture(MetricsCapture* capture) {
    std::lock_guard<std::mutex> lock(registryMutex());
    captures().push_back(capture);
}

void unregisterCapture(MetricsCapture* capture) {
    std::lock_guard<std::mutex> lock(registryMutex());
    auto& c = captures();
    c.erase(std::remove(c.begin(), c.end(), capture), c.end());
}

std::string metricsLogPath() {
    return vemo::platform::devicePath("/data/metrics/metrics.log");
}

int emit(const MetricsRecord& r) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%m-%d %H:%M:%S", &local);

    const std::string path = metricsLogPath();
    std::lock_guard<std::mutex> lock(registryMutex());
    for (MetricsCapture* c : captures()) {
        c->record(r);
    }
    if (!vemo::platform::makeParentDirectories(path)) {
        return -EIO;
    }
    FILE* f = std::fopen(path.c_str(), "a");
    if (f == nullptr) {
        return -errno;
    }
    std::fprintf(f, "%s.%03ld %d %d %s %s %s %d %s\n", stamp, now.tv_nsec / 1000000L,
                 static_cast<int>(getpid()), r.priority, r.tag.c_str(), r.group.c_str(),
                 r.schema.c_str(), r.number, r.payload.c_str());
    return std::fclose(f) == 0 ? 0 : -EIO;
}

}  // namespace metricslog

extern "C" int __metrics_log_print_v2(int priority, const char* tag, const char* group,
                                      const char* schema, int number, const char* fmt, ...) {
    if (tag == nullptr || group == nullptr || schema == nullptr || fmt == nullptr) {
        return -EINVAL;
    }
    va_list ap;
    va_start(ap, fmt);
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string payload;
    if (n > 0) {
        payload.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(&payload[0], payload.size(), fmt, ap);
        payload.resize(static_cast<size_t>(n));
    }
    va_end(ap);
    return metricslog::emit(
        metricslog::MetricsRecord{priority, tag, group, schema, number, payload});
}
