#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "TdpTestSupport.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpSignalHandler.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const char kTag[] = "Vemo:TdpSignalHandler";
const char kErrorCount[] = "TdpUnifiedSensingEventErrorCount";
const char kTooMany[] =
    "processEcsEvent:TdpSignalStorage::processEcsEvent() - ECS event json either had too many "
    "layers (more than 5) or too many signals (30).";
const char kUnparsable[] =
    "processEcsEvent:TdpSignalStorage::processEcsEvent() - ECS event JSON could not be parsed";

const std::string kOversized =
    "processEcsEvent:ECS event of " + std::to_string(TdpSignalHandler::kMaxEventBytes + 11) +
    " bytes is larger than " + std::to_string(TdpSignalHandler::kMaxEventBytes) +
    " bytes, dropped.";

class TdpSignalHandlerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(handler.loadDataProducerConfig(test::readTestFile("config_basic.json")));
    }
    int32_t errorCount() { return FactHeartbeatMetric::GetInstance().getCount(kErrorCount); }

    hostlog::LogCapture logs;
    TdpSignalHandler handler;
};

// The configuration's criteria are lower case; the signals they match are not.
TEST_F(TdpSignalHandlerTest, OnlyAChangedValueGivesSignals) {
    EXPECT_THAT(handler.processEcsEvent(R"({"volume":"5"})"), IsEmpty());
    EXPECT_TRUE(handler.getEventReceived());
    EXPECT_FALSE(handler.getDataEventTriggered());
    EXPECT_THAT(handler.processEcsEvent(R"({"volume":"6"})"),
                ElementsAre("VOLUME_6", "VOLUME_CHANGED"));
    EXPECT_TRUE(handler.getDataEventTriggered());
    handler.clearDataEventTriggered();
    EXPECT_THAT(handler.processEcsEvent(R"({"volume":"6"})"), IsEmpty());
    EXPECT_FALSE(handler.getDataEventTriggered());
}

TEST_F(TdpSignalHandlerTest, NestedObjectsFlattenAndArraysJoin) {
    handler.processEcsEvent(R"({"audio":{"state":"idle","out":{"route":"spk"}},"tags":["a"]})");
    EXPECT_THAT(handler.processEcsEvent(
                    R"({"audio":{"state":"playing","out":{"route":"bt"}},"tags":["a","b"]})"),
                ElementsAre("AUDIO_STATE_PLAYING", "AUDIO_STATE_CHANGED", "AUDIO_OUT_ROUTE_BT",
                            "AUDIO_OUT_ROUTE_CHANGED", "TAGS_A,B", "TAGS_CHANGED"));
    EXPECT_EQ(handler.getKeyStates().at("tags"), "a,b");
    // An array holding anything but strings is ignored entirely.
    EXPECT_THAT(handler.processEcsEvent(R"({"tags":["a",1]})"), IsEmpty());
    EXPECT_EQ(handler.getKeyStates().at("tags"), "a,b");
    EXPECT_THAT(handler.processEcsEvent(R"({"tags":[]})"), ElementsAre("TAGS_", "TAGS_CHANGED"));
}

// A client inventing new keys must not grow the daemon: keys past the limit
// are not remembered, while the remembered ones keep signalling.
TEST_F(TdpSignalHandlerTest, KeysPastTheLimitAreNotRemembered) {
    const auto eventOfKeys = [](std::size_t count, const std::string& value) {
        std::string json = "{";
        for (std::size_t i = 0; i < count; ++i) {
            json += (i == 0 ? "\"k" : ",\"k") + std::to_string(i) + "\":\"" + value + "\"";
        }
        return json + "}";
    };
    const std::size_t limit = TdpSignalHandler::kMaxKeys;
    EXPECT_THAT(handler.processEcsEvent(eventOfKeys(limit + 10, "a")), IsEmpty());
    EXPECT_EQ(handler.getKeyStates().size(), limit);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_WARN, kTag,
                              "processEcsEvent:10 new ECS keys not remembered, already " +
                                  std::to_string(limit) + " keys."));
    const std::string last = "k" + std::to_string(limit + 9);
    EXPECT_THAT(handler.processEcsEvent(R"({"k0":"b",")" + last + R"(":"b"})"),
                ElementsAre("K0_B", "K0_CHANGED"));
}

TEST_F(TdpSignalHandlerTest, OtherValueTypesAreSkippedWithADebugLine) {
    EXPECT_THAT(handler.processEcsEvent(R"({"level":3,"muted":true,"none":null,"x":"1"})"),
                IsEmpty());
    EXPECT_EQ(logs.count(kTag, "processNestedEcsState:Unknown Event value type, skipping."), 3u);
    EXPECT_EQ(handler.getKeyStates().size(), 1u);
}

TEST_F(TdpSignalHandlerTest, UcidsAreTakenOnFirstAppearance) {
    handler.processEcsEvent(R"({"ucids":["u-1","u-2"]})");
    EXPECT_EQ(handler.getUcid(), "u-1,u-2");
    handler.processEcsEvent(R"({"ucids":"u-3"})");
    EXPECT_EQ(handler.getUcid(), "u-3");
}

TEST_F(TdpSignalHandlerTest, NestingBeyondFiveLevelsIsSkippedSilently) {
    const char kDeep[] = R"({"a":{"b":{"c":{"d":{"e":{"f":"%s","g":{"h":"%s"}}}}}}})";
    char first[128];
    char second[128];
    snprintf(first, sizeof first, kDeep, "1", "1");
    snprintf(second, sizeof second, kDeep, "2", "2");
    handler.processEcsEvent(first);
    EXPECT_THAT(handler.processEcsEvent(second),
                ElementsAre("A_B_C_D_E_F_2", "A_B_C_D_E_F_CHANGED"));
    EXPECT_EQ(handler.getKeyStates().count("a_b_c_d_e_g_h"), 0u);
    EXPECT_EQ(logs.count(kTag, "too many"), 0u);
}

std::string wideEvent(int keys, const std::string& value, const std::string& prefix = "k") {
    std::string json = "{";
    for (int i = 0; i < keys; ++i) {
        json += (i ? ",\"" : "\"") + prefix + std::to_string(i) + "\":\"" + value + "\"";
    }
    return json + "}";
}

TEST_F(TdpSignalHandlerTest, MoreThanThirtySignalsBeforeATopLevelMemberDropTheEvent) {
    // 16 changed keys give 32 signals; the 17th top-level member fails the event.
    handler.processEcsEvent(wideEvent(17, "a"));
    const int32_t before = errorCount();
    EXPECT_THAT(handler.processEcsEvent(wideEvent(17, "b")), IsEmpty());
    EXPECT_EQ(errorCount(), before + 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, kTooMany));
    // Keys handled before the failing member keep their new state.
    EXPECT_EQ(handler.getKeyStates().at("k0"), "b");
    EXPECT_EQ(handler.getKeyStates().at("k16"), "a");

    // The same overflow inside one nested object is skipped silently.
    handler.processEcsEvent("{\"n\":" + wideEvent(17, "a") + "}");
    logs.clear();
    const auto signals = handler.processEcsEvent("{\"n\":" + wideEvent(17, "b") + "}");
    EXPECT_EQ(signals.size(), 32u);
    EXPECT_EQ(errorCount(), before + 1);
    EXPECT_EQ(logs.count(kTag, "too many"), 0u);
}

TEST_F(TdpSignalHandlerTest, InitVectorCoversEveryRememberedKey) {
    handler.processEcsEvent(R"({"alarm":{"state":"ringing"},"volume":"4"})");
    EXPECT_THAT(handler.getSignalStorageInitVector(),
                UnorderedElementsAre("ALARM_STATE_RINGING", "ALARM_STATE_CHANGED", "VOLUME_4",
                                     "VOLUME_CHANGED"));
}

TEST_F(TdpSignalHandlerTest, ConfigurationReloadKeepsKeyStatesButResetsCriteria) {
    handler.processEcsEvent(R"({"volume":"1"})");
    handler.processEcsEvent(R"({"volume":"2"})");
    ASSERT_TRUE(handler.getDataEventTriggered());
    EXPECT_FALSE(handler.loadDataProducerConfig("{not json"));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "loadDataProducerConfig:TdpSignalHandler::loadDataProducerConfig has "
                              "a parse error, failed to configure."));
    EXPECT_FALSE(handler.getDataEventTriggered());
    EXPECT_THAT(handler.getEmitCriteria(), IsEmpty());
    EXPECT_EQ(handler.getKeyStates().at("volume"), "2");
}

struct BadEvent {
    const char* name;
    std::string json;
    const char* errorLine;  // nullptr: dropped silently, not counted
};

class TdpSignalHandlerBadEventTest : public TdpSignalHandlerTest,
                                     public ::testing::WithParamInterface<BadEvent> {};

TEST_P(TdpSignalHandlerBadEventTest, CountedOrSkippedNeverThrown) {
    const int32_t before = errorCount();
    EXPECT_THAT(handler.processEcsEvent(GetParam().json), IsEmpty());
    if (GetParam().errorLine != nullptr) {
        EXPECT_EQ(errorCount(), before + 1);
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, GetParam().errorLine))
            << hostlog::describe(logs.entries());
        EXPECT_FALSE(handler.getEventReceived());
    } else {
        EXPECT_EQ(errorCount(), before);
    }
    EXPECT_FALSE(handler.getDataEventTriggered());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, TdpSignalHandlerBadEventTest,
    ::testing::Values(
        BadEvent{"Empty", "", kUnparsable}, BadEvent{"NotJson", "volume=5", kUnparsable},
        BadEvent{"Truncated", R"({"volume":"5")", kUnparsable},
        BadEvent{"TrailingGarbage", R"({"volume":"5"} x)", kUnparsable},
        BadEvent{"TopLevelArray", R"(["volume","5"])", kUnparsable},
        BadEvent{"TopLevelString", R"("volume")", kUnparsable},
        BadEvent{"InvalidUtf8Escape", R"({"volume":"\uD800"})", kUnparsable},
        // Nesting far beyond any limit must not exhaust the stack while parsing.
        BadEvent{"DeeplyNestedArrays", std::string(60000, '['), kUnparsable},
        BadEvent{"DeeplyNestedObjects",
                 [] {
                     std::string s;
                     for (int i = 0; i < 8000; ++i) {
                         s += "{\"a\":";
                     }
                     return s + "\"x\"" + std::string(8000, '}');
                 }(),
                 nullptr},
        BadEvent{"Oversized",
                 "{\"blob\":\"" + std::string(TdpSignalHandler::kMaxEventBytes, 'x') + "\"}",
                 kOversized.c_str()},
        BadEvent{"OddTypes", R"({"n":1.5e308,"b":false,"z":null,"a":[[["x"]]],"o":{}})", nullptr}),
    [](const ::testing::TestParamInfo<BadEvent>& info) { return info.param.name; });

}  // namespace
}  // namespace tdp
}  // namespace fact
