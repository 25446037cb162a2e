#include <android/log.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "TempDeviceRoot.h"
#include "common/DevicePaths.h"
#include "daemon/VemoDaemon.h"
#include "hostlog/LogCapture.h"

namespace {

using namespace std::chrono_literals;
const char kTag[] = "Vemo:VemoDaemon";

TEST(VemoDaemonTest, SetupRemovesAStaleGradientFile) {
    vemo::test::TempDeviceRoot root;
    root.writeFile(vemo::paths::kWakewordGradientFile, "stale");
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    EXPECT_EQ(daemon->setup(), 0);
    EXPECT_FALSE(root.exists(vemo::paths::kWakewordGradientFile));
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{"setup:Configuring vemod",
                                        "setup:Removed Wakeword gradient file on vemod startup",
                                        "setup:Setup vemo service"}));
}

TEST(VemoDaemonTest, SetupWithoutGradientFileSkipsCleanup) {
    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    EXPECT_EQ(daemon->setup(), 0);
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_INFO, kTag,
                      "setup:Wakeword Gradient file does not exist, skipping initial cleanup"));
}

TEST(VemoDaemonTest, SetupConnectsTheTelemetryProducer) {
    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    ASSERT_EQ(daemon->setup(), 0);
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_DEBUG, "Vemo:TdpManager", "connect:TdpManager::connect()"));
}

TEST(VemoDaemonTest, RunBlocksUntilStopped) {
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    auto finished = std::async(std::launch::async, [&daemon] { daemon->run(); });
    EXPECT_EQ(finished.wait_for(200ms), std::future_status::timeout);
    daemon->stop();
    EXPECT_EQ(finished.wait_for(30s), std::future_status::ready);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_INFO, kTag, "run:Exiting run loop"));
}

TEST(VemoDaemonTest, StopBeforeRunIsNotLost) {
    auto daemon = vemo::VemoDaemon::make_unique();
    daemon->stop();
    auto finished = std::async(std::launch::async, [&daemon] { daemon->run(); });
    EXPECT_EQ(finished.wait_for(30s), std::future_status::ready);
}

}  // namespace
