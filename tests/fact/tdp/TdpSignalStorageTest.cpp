#include <android/log.h>
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
    void SetUp() override { configure(); }
    void configure() {
        ASSERT_TRUE(storage.loadDataProducerConfig(test::readTestFile("config_basic.json")));
    }
    int32_t stickyState(size_t i) { return storage.stickySignals()[i].state; }

    hostlog::LogCapture logs;
    TdpSignalStorage storage;
};

TEST_F(TdpSignalStorageTest, StickySignalsWinByPriorityWhileOnAndAreStoredWhenSwitchedOff) {
    // Never switched on, or named in another case: nothing to output.
    storage.updateSignals({"ALARM_STATE_IDLE", "timer_state_ringing", "volume_changed"}, kT0,
                          false);
    EXPECT_EQ(stickyState(0), TdpSignal::kStateOff);
    EXPECT_EQ(stickyState(1), TdpSignal::kStateNone);
    EXPECT_EQ(storage.getOutputSignal().state, TdpSignal::kStateNone);

    storage.updateSignals({"TIMER_STATE_RINGING"}, kT0, false);
    storage.updateSignals({"ALARM_STATE_RINGING"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().name, "alarm");
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_DEBUG, kTag,
                      "getOutputSignal:TdpSignalStorage::getOutputSignal(), alarm is active"));
    // An end transition wins over a start transition in the same event.
    storage.updateSignals({"ALARM_STATE_RINGING", "ALARM_STATE_IDLE"}, kT0 + milliseconds(1),
                          false);
    EXPECT_EQ(stickyState(0), TdpSignal::kStateOff);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, kTag,
                              "updateSignals:TdpSignalStorage::updateSignals() - Storing sticky "
                              "alarm after turned off"));
    EXPECT_EQ(storage.getOutputSignal().name, "timer");
    storage.updateSignals({"TIMER_STATE_IDLE"}, kT0 + milliseconds(2), false);
    EXPECT_EQ(storage.getOutputSignal().name, "timer");
    EXPECT_EQ(storage.getOutputSignal().state, TdpSignal::kStateStored);
}

TEST_F(TdpSignalStorageTest, LastSignalPrefersLaterTimesThenSmallerPriority) {
    // Same time point: bluetooth (2) beats volume_change (4) in either order.
    storage.updateSignals({"VOLUME_CHANGED", "BLUETOOTH_A2DP_CONNECTED"}, kT0, false);
    EXPECT_EQ(storage.getOutputSignal().name, "bluetooth");
    storage.resetStorage();
    configure();
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
    EXPECT_EQ(stickyState(0), TdpSignal::kStateOff);
    EXPECT_EQ(stickyState(1), TdpSignal::kStateOn);
    EXPECT_EQ(storage.lastSignal().state, TdpSignal::kStateNone);
    EXPECT_EQ(logs.count(kTag, "Found"), 0u);
}

// Configurations the schema admits but the storage cannot use.
TEST_F(TdpSignalStorageTest, FailedLoadLeavesStorageEmpty) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"output_priority":["alarm"],"passthrough_config":{},
             "sticky_signal_config":{"alarm":{"start_transition":["A_ON","A_X"],
                                              "end_transition":["A_OFF","A_X"]}}})",
         "loadStickyConfig:TdpSignalStorage::loadDataProducerConfig - Duplicate start/stop "
         "transition: alarm"},
        {R"({"output_priority":["timer"],"passthrough_config":{},
             "sticky_signal_config":{"alarm":{"start_transition":["A_ON"],"end_transition":[]}}})",
         "loadStickyConfig:TdpSignalStorage::loadDataProducerConfig - passthrough alarm not in "
         "priority"},
        {R"({"output_priority":["volume"],"sticky_signal_config":{},
             "passthrough_config":{"VOLUME_CHANGED":"volume","MUTE_CHANGED":"mute"}})",
         "loadPassthroughConfig:TdpSignalStorage::loadDataProducerConfig - mute is not in "
         "priority"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        configure();
        storage.updateSignals({"ALARM_STATE_RINGING", "VOLUME_CHANGED"}, kT0, false);
        logs.clear();
        EXPECT_FALSE(storage.loadDataProducerConfig(
            std::string(R"({"version":"1","ecs_sensory_events":)") + row.first + "}"));
        EXPECT_TRUE(storage.stickySignals().empty());
        EXPECT_TRUE(storage.passthrough().empty());
        EXPECT_EQ(storage.getOutputSignal().name, "");
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, row.second))
            << hostlog::describe(logs.entries());
    }
}

}  // namespace
}  // namespace tdp
}  // namespace fact
