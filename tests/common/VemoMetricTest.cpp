#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>

#include "TempDeviceRoot.h"
#include "common/VemoMetric.h"
#include "hostlog/LogCapture.h"

namespace {

using vemo::VemoMetric;

const std::string kPrefix =
    "_marketPlaceId=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,_countryOfResidence=;SY,MetricName=";

class VemoMetricTest : public ::testing::Test {
  protected:
    vemo::test::TempDeviceRoot root;
    metricslog::MetricsCapture metrics;
    hostlog::LogCapture logs;
};

// The record's fixed fields are FactHeartbeatMetricTest's, whose heartbeat is
// the product's only metric.
TEST_F(VemoMetricTest, DataPointsAreSanitisedAndTyped) {
    {
        VemoMetric metric("grp", "sch", "M:1");
        metric.addCounterDataPoint("a:b|c=d,e", -5);
        metric.addCounterDataPoint("a:b|c=d,e", 0);
    }
    ASSERT_EQ(metrics.records().size(), 1u);
    EXPECT_EQ(metrics.records()[0].payload,
              kPrefix + "M-1;SY,M-1=1;IN,a-b-c-d-e=-5;IN,a-b-c-d-e=0;IN");
}

// The product's group and schema are constants far below the limit; what
// matters is that a bad one emits nothing and says so once.
TEST_F(VemoMetricTest, InvalidRecordLogsOnceAndIsNeverEmitted) {
    {
        VemoMetric metric(std::string(50, 'g'), "sch", "Name");
        metric.addCounterDataPoint("x", 1);
    }
    EXPECT_TRUE(metrics.records().empty());
    EXPECT_EQ(logs.messages("Vemo:VemoMetricImpl"),
              std::vector<std::string>{"VemoMetricImpl:badgroupOrSchemaForMetric=Name"});
}

}  // namespace
