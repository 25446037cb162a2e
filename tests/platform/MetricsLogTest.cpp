#include <gtest/gtest.h>
#include <metricslog/MetricsCapture.h>
#include <metricslog/metrics_log.h>

#include "TempDeviceRoot.h"

namespace {

TEST(MetricsLogTest, AppendsOneLinePerRecordUnderTheDeviceRoot) {
    vemo::test::TempDeviceRoot root;
    metricslog::MetricsCapture capture;
    ASSERT_EQ(__metrics_log_print_v2(4, "vemod", "grp", "sch/1", 100, "%s", "A=1;IN"), 0);
    ASSERT_EQ(__metrics_log_print_v2(4, "vemod", "grp", "sch/1", 100, "%s", "B=2;IN"), 0);

    const std::string file = root.readFile("/data/metrics/metrics.log");
    EXPECT_NE(file.find(" 4 vemod grp sch/1 100 A=1;IN\n"), std::string::npos) << file;
    EXPECT_NE(file.find(" 4 vemod grp sch/1 100 B=2;IN\n"), std::string::npos) << file;

    const auto records = capture.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].tag, "vemod");
    EXPECT_EQ(records[0].group, "grp");
    EXPECT_EQ(records[0].schema, "sch/1");
    EXPECT_EQ(records[0].number, 100);
    EXPECT_EQ(records[1].payload, "B=2;IN");
}

TEST(MetricsLogTest, NullArgumentsAreRejected) {
    vemo::test::TempDeviceRoot root;
    metricslog::MetricsCapture capture;
    EXPECT_LT(__metrics_log_print_v2(4, nullptr, "g", "s", 100, "%s", "x"), 0);
    EXPECT_TRUE(capture.records().empty());
}

}  // namespace
