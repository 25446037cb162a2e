// The process-wide heartbeat sends its first report on its own thread as soon
// as the instance exists, and that report zeroes every counter. A test that
// compares a count before and after an error must not have the report land
// between its two readings, so every test program that reads counts links
// this environment: it creates the heartbeat and waits (bounded) for that
// first report before any test runs.

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
