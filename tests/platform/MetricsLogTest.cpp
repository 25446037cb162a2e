#include <gtest/gtest.h>
#include <metricslog/metrics_log.h>
#include <unistd.h>

#include <regex>

#include "TempDeviceRoot.h"

namespace {

TEST(MetricsLogTest, AppendsOneLinePerRecordUnderTheDeviceRoot) {
    vemo::test::TempDeviceRoot root;
    ASSERT_EQ(__metrics_log_print_v2(4, "vemod", "grp", "sch/1", 100, "%s", "A=1;IN"), 0);
    ASSERT_EQ(__metrics_log_print_v2(4, "vemod", "grp", "sch/1", 100, "%d", 2), 0);
    EXPECT_LT(__metrics_log_print_v2(4, nullptr, "g", "s", 100, "%s", "x"), 0);

    const std::string line = R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )" + std::to_string(getpid()) +
                             " 4 vemod grp sch/1 100 ";
    const std::string file = root.readFile("/data/metrics/metrics.log");
    EXPECT_TRUE(std::regex_match(file, std::regex(line + "A=1;IN\n" + line + "2\n"))) << file;
}

}  // namespace
