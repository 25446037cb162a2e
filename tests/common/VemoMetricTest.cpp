#include <android/log.h>
#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>

#include "TempDeviceRoot.h"
#include "common/VemoMetric.h"
#include "common/VemoMetricValidation.h"
#include "hostlog/LogCapture.h"

namespace {

using vemo::VemoMetric;
using vemo::VemoMetricValidation;

const std::string kPrefix =
    "_marketPlaceId=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,_countryOfResidence=;SY,MetricName=";

class VemoMetricTest : public ::testing::Test {
  protected:
    vemo::test::TempDeviceRoot root;
    metricslog::MetricsCapture metrics;
    hostlog::LogCapture logs;
};

TEST_F(VemoMetricTest, CountingFormEmitsOneRecordOnDestruction) {
    {
        VemoMetric metric("grp", "sch", "N");
        EXPECT_TRUE(metrics.records().empty());
    }
    const auto records = metrics.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 4);
    EXPECT_EQ(records[0].tag, "vemod");
    EXPECT_EQ(records[0].group, "grp");
    EXPECT_EQ(records[0].schema, "sch");
    EXPECT_EQ(records[0].number, 100);
    EXPECT_EQ(records[0].payload, kPrefix + "N;SY,N=1;IN");
}

TEST_F(VemoMetricTest, DataPointsAreSanitisedAndTyped) {
    {
        VemoMetric metric(true, "grp", "sch", "M:1");
        metric.addCounterDataPoint("a:b|c=d,e", -5);
        metric.addCounterDataPoint("a:b|c=d,e", 0);
    }
    ASSERT_EQ(metrics.records().size(), 1u);
    EXPECT_EQ(metrics.records()[0].payload, kPrefix + "M-1;SY,a-b-c-d-e=-5;IN,a-b-c-d-e=0;IN");
}

TEST_F(VemoMetricTest, NameLengthLimits) {
    struct Case {
        size_t group;
        size_t schema;
        bool valid;
    };
    const Case cases[] = {{49, 49, true}, {50, 1, false}, {1, 50, false}, {0, 0, true}};
    for (const Case& c : cases) {
        EXPECT_EQ(VemoMetricValidation::isGroupAndSchemaValid(std::string(c.group, 'g'),
                                                              std::string(c.schema, 's')),
                  c.valid)
            << c.group << "/" << c.schema;
    }
}

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
