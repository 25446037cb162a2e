#include <android/log.h>
#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
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

TEST_F(FactHeartbeatMetricTest, FirstReportAtOnceAndDestructionWakesTheWorkerWithoutAnother) {
    const auto start = std::chrono::steady_clock::now();
    {
        FactHeartbeatMetric heartbeat(std::chrono::hours(1));
        ASSERT_TRUE(waitForRecords(1));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
    const auto records = metrics.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 4);
    EXPECT_EQ(records[0].tag, "vemod");
    EXPECT_EQ(records[0].number, 100);
    EXPECT_EQ(records[0].group, "rnzgvlsf");
    EXPECT_EQ(records[0].schema, "fyln/2/02330460");
    EXPECT_EQ(records[0].payload, kHeader);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_INFO, "Vemo:FactMetrics",
                              "sendMetrics:Sending FactDeviceClientHeartBeat"));
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_DEBUG, "Vemo:FactMetrics", "sendMetrics:Metadata values:"));
}

// The value a record gives a counter; -1 when the record does not name it.
int valueIn(const std::string& payload, const std::string& name) {
    const std::string key = "," + name + "=";
    const auto at = payload.find(key);
    return at == std::string::npos ? -1 : std::stoi(payload.substr(at + key.size()));
}

TEST_F(FactHeartbeatMetricTest, CountersAreReportedOnceThenZeroed) {
    FactHeartbeatMetric heartbeat(100ms);
    ASSERT_TRUE(waitForRecords(1));
    heartbeat.addCounts("X", 3);
    heartbeat.addCount("X");
    heartbeat.setCounterDatapoint("Y", 7);
    // A report may fall between any two calls (slow machines, sanitizers);
    // what holds is that each count is reported exactly once, then zero.
    for (size_t n = 2;; ++n) {
        ASSERT_TRUE(waitForRecords(n));
        if (valueIn(metrics.records()[n - 1].payload, "Y") == 0) {
            break;
        }
    }
    const auto records = metrics.records();
    int xTotal = 0;
    int sevens = 0;
    for (const auto& record : records) {
        EXPECT_EQ(record.payload.rfind(kHeader, 0), 0u) << record.payload;
        xTotal += std::max(0, valueIn(record.payload, "X"));
        sevens += valueIn(record.payload, "Y") == 7 ? 1 : 0;
    }
    EXPECT_EQ(xTotal, 4);
    EXPECT_EQ(sevens, 1);
    EXPECT_EQ(valueIn(records.back().payload, "X"), 0) << records.back().payload;
}

TEST_F(FactHeartbeatMetricTest, ConcurrentCountsAreNotLostAndCountsWrapAt32Bits) {
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
    // Both ways, as the device's 32-bit counters do (UBSan reports an overflow).
    heartbeat.setCounterDatapoint("Wraps", INT32_MAX);
    heartbeat.addCount("Wraps");
    EXPECT_EQ(heartbeat.getCount("Wraps"), INT32_MIN);
    heartbeat.addCounts("Wraps", -1);
    EXPECT_EQ(heartbeat.getCount("Wraps"), INT32_MAX);
}

}  // namespace
