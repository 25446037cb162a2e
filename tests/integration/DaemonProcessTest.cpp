#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <regex>
#include <thread>

#include "ChildProcess.h"
#include "TempDeviceRoot.h"

namespace {

using namespace std::chrono_literals;
using vemo::test::ChildProcess;

class DaemonProcessTest : public ::testing::TestWithParam<int> {
  protected:
    vemo::test::TempDeviceRoot root;
};

// Runs the real daemon on its own device root and stops it with a signal.
TEST_P(DaemonProcessTest, StartsLogsReportsAndStopsCleanly) {
    root.writeFile("/data/securedStorageLocation/nimbel.speech.sim/ww_gradients.flgr", "stale");
    ChildProcess daemon(VEMO_DAEMON_PATH, {}, {{"VEMO_DEVICE_ROOT", root.root()}});
    ASSERT_TRUE(daemon.waitForOutput("setup:Setup vemo service", 30s)) << daemon.output();
    ASSERT_TRUE(daemon.waitForOutput("sendMetrics:Sending FactDeviceClientHeartBeat", 30s))
        << daemon.output();

    const std::regex firstLine(
        R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ I Vemo:VemoDaemon: setup:Configuring vemod\n)");
    EXPECT_TRUE(std::regex_search(daemon.output(), firstLine)) << daemon.output();
    EXPECT_NE(daemon.output().find("setup:Removed Wakeword gradient file on vemod startup"),
              std::string::npos);
    EXPECT_FALSE(root.exists("/data/securedStorageLocation/nimbel.speech.sim/ww_gradients.flgr"));

    // Exactly one heartbeat record so far, in the device's metrics log. The
    // record is written after the report's log lines, so wait for it.
    std::string metrics;
    for (int i = 0; i < 3000 && metrics.find('\n') == std::string::npos; ++i) {
        std::this_thread::sleep_for(10ms);
        metrics = root.readFile("/data/metrics/metrics.log");
    }
    EXPECT_NE(metrics.find(" 4 vemod rnzgvlsf fyln/2/02330460 100 "), std::string::npos) << metrics;
    EXPECT_NE(
        metrics.find("MetricName=FactDeviceClientHeartBeat;SY,FactDeviceClientHeartBeat=1;IN"),
        std::string::npos);
    EXPECT_EQ(std::count(metrics.begin(), metrics.end(), '\n'), 1);

    const auto stopAt = std::chrono::steady_clock::now();
    daemon.signal(GetParam());
    EXPECT_EQ(daemon.waitForExit(10s), 0) << daemon.output();
    // Prompt, not instant: the thread sanitizer alone sleeps 1 s at exit.
    EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 2s);
    EXPECT_NE(daemon.output().find("I Vemo:VemoDaemon: run:Exiting run loop"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Signals, DaemonProcessTest, ::testing::Values(SIGTERM, SIGINT));

}  // namespace
