#pragma once
// The process-wide heartbeat zeroes its counters in its first report, which
// goes out on its own thread right after creation. Tests that compare counts
// call this first, so that the report cannot land between their readings.

#include <metricslog/MetricsCapture.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "fact/FactHeartbeatMetric.h"

namespace vemo {
namespace test {

inline void awaitFirstHeartbeatReport() {
    static std::once_flag once;
    std::call_once(once, [] {
        metricslog::MetricsCapture metrics;
        fact::FactHeartbeatMetric::GetInstance();
        for (int i = 0; i < 2000 && metrics.records().empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
}

}  // namespace test
}  // namespace vemo
