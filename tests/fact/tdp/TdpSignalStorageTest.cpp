#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TdpTestSupport.h"
#include "fact/tdp/TdpSignalStorage.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using std::chrono::milliseconds;

const char kTag[] = "Vemo:TdpSignalStorage";
const TdpTimePoint kT0{std::chrono::seconds(1000)};

class TdpSignalStorageTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(storage.loadDataProducerConfig(test::readTestFile("config_basic.json")));
    }

    hostlog::LogCapture logs;
    TdpSignalStorage storage;
};

void expectEmpty(const TdpSignalStorage& storage) {
    EXPECT_TRUE(storage.stickySignals().empty());
    EXPECT_TRUE(storage.passthrough().empty());
    const TdpSignal& last = storage.lastSignal();
    EXPECT_EQ(last.name, "");
    EXPECT_EQ(last.time, TdpTimePoint::min());
    EXPECT_EQ(last.state, TdpSignal::kStateNone);
    EXPECT_EQ(last.priority, TdpSignal::kLowestPriority);
}

TEST_F(TdpSignalStorageTest, StickyAlarmIsOutputWhileOnAndStoredAfterItStops) {
    storage.updateSignals({"ALARM_STATE_RINGING", "ALARM_STATE_CHANGED"}, kT0, false);
    TdpSignal out = storage.getOutputSignal();
    EXPECT_EQ(out.name, "alarm");
    EXPECT_EQ(out.state, TdpSignal::kStateOn);
    EXPECT_EQ(out.time, TdpTimePoint::min());
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_DEBUG, kTag,
                      "getOutputSignal:TdpSignalStorage::getOutputSignal(), alarm is active"));

    const TdpTimePoint stop = kT0 + milliseconds(2500);
    storage.updateSignals({"ALARM_STATE_IDLE", "ALARM_STATE_CHANGED"}, stop, false);
    out = storage.getOutputSignal();
    EXPECT_EQ(out.name, "alarm");
    EXPECT_EQ(out.state, TdpSignal::kStateStored);
    EXPECT_EQ(out.time, stop);
    EXPECT_EQ(out.priority, 0);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, kTag,
                              "updateSignals:TdpSignalStorage::updateSignals() - Storing sticky "
                              "alarm after turned off"));

    // A later passthrough signal replaces the stored alarm.
    storage.updateSignals({"VOLUME_CHANGED"}, stop + milliseconds(1), false);
    EXPECT_EQ(storage.getOutputSignal().name, "volume_change");
}

TEST_F(TdpSignalStorageTest, MoreImportantStickyWinsAndStartPlusEndInOneEventLeavesItOff) {
    storage.updateSignals({"TIMER_STATE_RINGING"}, kT0, false);
    storage.updateSignals({"ALARM_STATE_RINGING"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().name, "alarm");
    storage.updateSignals({"ALARM_STATE_RINGING", "ALARM_STATE_IDLE"}, kT0 + milliseconds(1),
                          false);
    EXPECT_EQ(storage.stickySignals()[0].state, TdpSignal::kStateOff);
    EXPECT_EQ(storage.getOutputSignal().name, "timer");
}

TEST_F(TdpSignalStorageTest, StickyNeverOnIsSwitchedOffButNotStored) {
    storage.updateSignals({"ALARM_STATE_IDLE"}, kT0, false);
    EXPECT_EQ(storage.stickySignals()[0].state, TdpSignal::kStateOff);
    EXPECT_EQ(storage.getOutputSignal().state, TdpSignal::kStateNone);
}

TEST_F(TdpSignalStorageTest, LastSignalPrefersLaterTimesThenSmallerPriority) {
    // Same time point: bluetooth (2) beats volume_change (4) in either order.
    storage.updateSignals({"VOLUME_CHANGED", "BLUETOOTH_A2DP_CONNECTED"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().name, "bluetooth");
    storage.resetStorage();
    ASSERT_TRUE(storage.loadDataProducerConfig(test::readTestFile("config_basic.json")));
    storage.updateSignals({"BLUETOOTH_A2DP_CONNECTED", "VOLUME_CHANGED"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().name, "bluetooth");

    // An older candidate never replaces a newer one; a newer one always does.
    storage.updateLastSignal("alarm", 0, kT0 - milliseconds(1));
    EXPECT_EQ(storage.getOutputSignal().name, "bluetooth");
    storage.updateLastSignal("volume_change", 4, kT0 + milliseconds(1));
    EXPECT_EQ(storage.getOutputSignal().name, "volume_change");
    // A full tie keeps the existing one.
    storage.updateLastSignal("other", 4, kT0 + milliseconds(1));
    EXPECT_EQ(storage.getOutputSignal().name, "volume_change");
}

TEST_F(TdpSignalStorageTest, InitialUpdatesMoveStickyStatesButNeverTheLastSignal) {
    storage.updateSignals({"ALARM_STATE_RINGING"}, kT0, false);
    storage.updateSignals({"ALARM_STATE_IDLE", "VOLUME_CHANGED", "TIMER_STATE_RINGING"},
                          kT0 + milliseconds(5), true);
    EXPECT_EQ(storage.stickySignals()[0].state, TdpSignal::kStateOff);
    EXPECT_EQ(storage.stickySignals()[1].state, TdpSignal::kStateOn);
    EXPECT_EQ(storage.lastSignal().state, TdpSignal::kStateNone);
    EXPECT_EQ(logs.count(kTag, "Found"), 0u);
}

TEST_F(TdpSignalStorageTest, NamesAreComparedExactlyWithoutCaseFolding) {
    storage.updateSignals({"alarm_state_ringing", "volume_changed"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().state, TdpSignal::kStateNone);
}

struct BadConfig {
    const char* name;
    const char* ecsSensoryEvents;
    const char* errorLine;
};

class TdpSignalStorageBadConfigTest : public TdpSignalStorageTest,
                                      public ::testing::WithParamInterface<BadConfig> {};

TEST_P(TdpSignalStorageBadConfigTest, FailedLoadLeavesStorageEmpty) {
    storage.updateSignals({"VOLUME_CHANGED"}, kT0, false);
    logs.clear();
    const std::string config =
        std::string(R"({"version":"1","ecs_sensory_events":)") + GetParam().ecsSensoryEvents + "}";
    EXPECT_FALSE(storage.loadDataProducerConfig(config));
    expectEmpty(storage);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, GetParam().errorLine))
        << hostlog::describe(logs.entries());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, TdpSignalStorageBadConfigTest,
    ::testing::Values(
        BadConfig{"DuplicateStartStop",
                  R"({"output_priority":["alarm"],"passthrough_config":{},
                      "sticky_signal_config":{"alarm":{"start_transition":["A_ON","A_X"],
                                                       "end_transition":["A_OFF","A_X"]}}})",
                  "loadStickyConfig:TdpSignalStorage::loadDataProducerConfig - Duplicate "
                  "start/stop transition: alarm"},
        BadConfig{"StickyNotInPriority",
                  R"({"output_priority":["timer"],"passthrough_config":{},
                      "sticky_signal_config":{"alarm":{"start_transition":["A_ON"],
                                                       "end_transition":[]}}})",
                  "loadStickyConfig:TdpSignalStorage::loadDataProducerConfig - passthrough alarm "
                  "not in priority"},
        BadConfig{"PassthroughNotInPriority",
                  R"({"output_priority":["volume"],"sticky_signal_config":{},
                      "passthrough_config":{"VOLUME_CHANGED":"volume","MUTE_CHANGED":"mute"}})",
                  "loadPassthroughConfig:TdpSignalStorage::loadDataProducerConfig - mute is not in "
                  "priority"},
        BadConfig{"MissingPriority", R"({"sticky_signal_config":{},"passthrough_config":{}})",
                  "loadDataProducerConfig:TdpSignalStorage::loadDataProducerConfig - "
                  "output_priority is missing or malformed"},
        BadConfig{"StickyConfigNotAnObject",
                  R"({"output_priority":[],"sticky_signal_config":[],"passthrough_config":{}})",
                  "loadDataProducerConfig:TdpSignalStorage::loadDataProducerConfig - "
                  "sticky_signal_config is missing or malformed"}),
    [](const ::testing::TestParamInfo<BadConfig>& info) { return info.param.name; });

}  // namespace
}  // namespace tdp
}  // namespace fact
