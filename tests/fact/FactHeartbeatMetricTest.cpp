#include <android/log.h>
#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>

#include <chrono>
#include <thread>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::FactHeartbeatMetric;
using namespace std::chrono_literals;

const std::string kHeader =
    "_marketPlaceId=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,_countryOfResidence=;SY,"
    "MetricName=FactDeviceClientHeartBeat;SY,FactDeviceClientHeartBeat=1;IN";

class FactHeartbeatMetricTest : public ::testing::Test {
  protected:
    // Waits until `n` records were emitted; false after a generous bound.
    bool waitForRecords(size_t n) {
        for (int i = 0; i < 2000 && metrics.records().size() < n; ++i) {
            std::this_thread::sleep_for(5ms);
        }
        return metrics.records().size() >= n;
    }

    vemo::test::TempDeviceRoot root;
    metricslog::MetricsCapture metrics;
    hostlog::LogCapture logs;
};

TEST_F(FactHeartbeatMetricTest, FirstReportGoesOutAtOnceEvenWithNoCounts) {
    FactHeartbeatMetric heartbeat(std::chrono::hours(1));
    ASSERT_TRUE(waitForRecords(1));
    const auto record = metrics.records()[0];
    EXPECT_EQ(record.group, "rnzgvlsf");
    EXPECT_EQ(record.schema, "fyln/2/02330460");
    EXPECT_EQ(record.payload, kHeader);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_INFO, "Vemo:FactMetrics",
                              "sendMetrics:Sending FactDeviceClientHeartBeat"));
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_DEBUG, "Vemo:FactMetrics", "sendMetrics:Metadata values:"));
}

TEST_F(FactHeartbeatMetricTest, CountersAreReportedThenZeroed) {
    // A long first wait: counts land between the first and second report.
    FactHeartbeatMetric heartbeat(300ms);
    ASSERT_TRUE(waitForRecords(1));
    heartbeat.addCounts("X", 3);
    heartbeat.addCount("X");
    heartbeat.addCount("Y");
    heartbeat.setCounterDatapoint("Y", 7);
    EXPECT_EQ(heartbeat.getCount("X"), 4);
    ASSERT_TRUE(waitForRecords(2));
    const std::string second = metrics.records()[1].payload;
    EXPECT_NE(second.find(",X=4;IN"), std::string::npos) << second;
    EXPECT_NE(second.find(",Y=7;IN"), std::string::npos) << second;
    EXPECT_EQ(heartbeat.getCount("X"), 0);
    ASSERT_TRUE(waitForRecords(3));
    const std::string third = metrics.records()[2].payload;
    EXPECT_NE(third.find(",X=0;IN"), std::string::npos) << third;
    EXPECT_NE(third.find(",Y=0;IN"), std::string::npos) << third;
}

TEST_F(FactHeartbeatMetricTest, DestructionWakesTheWorkerAtOnceWithoutAnotherReport) {
    const auto start = std::chrono::steady_clock::now();
    {
        FactHeartbeatMetric heartbeat(std::chrono::hours(1));
        ASSERT_TRUE(waitForRecords(1));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
    EXPECT_EQ(metrics.records().size(), 1u);
}

TEST_F(FactHeartbeatMetricTest, CountingAfterShutdownWorksButIsNotReported) {
    FactHeartbeatMetric heartbeat(10ms);
    ASSERT_TRUE(waitForRecords(1));
    heartbeat.shutdown();
    heartbeat.addCount("Late");
    EXPECT_EQ(heartbeat.getCount("Late"), 1);
}

TEST_F(FactHeartbeatMetricTest, ConcurrentCountsAreNotLost) {
    FactHeartbeatMetric heartbeat(std::chrono::hours(1));
    // The first report zeroes whatever was counted before it.
    ASSERT_TRUE(waitForRecords(1));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&heartbeat] {
            for (int k = 0; k < 1000; ++k) {
                heartbeat.addCount("C");
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(heartbeat.getCount("C"), 4000);
}

}  // namespace
