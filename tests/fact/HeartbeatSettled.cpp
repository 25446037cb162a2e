// The heartbeat's first report goes out as soon as the instance exists and
// zeroes the counters; tests that compare counts before and after an error
// must start after it. This environment waits for that report once, before
// any test of the binary runs.

#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>

#include <chrono>
#include <thread>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"

namespace {

class HeartbeatSettled : public ::testing::Environment {
  public:
    void SetUp() override {
        vemo::test::TempDeviceRoot root;  // the report's record lands there
        metricslog::MetricsCapture capture;
        fact::FactHeartbeatMetric::GetInstance();
        for (int i = 0; i < 2000 && capture.records().empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ASSERT_FALSE(capture.records().empty()) << "no first heartbeat report";
    }
};

::testing::Environment* const kHeartbeatSettled =
    ::testing::AddGlobalTestEnvironment(new HeartbeatSettled);

}  // namespace
