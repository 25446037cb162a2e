#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TdpTestSupport.h"
#include "fact/tdp/TdpSignalHandler.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kTag[] = "Vemo:TdpSignalHandler";
const char kUnparsable[] =
    "processEcsEvent:TdpSignalStorage::processEcsEvent() - ECS event JSON could not be parsed";

// {"k0":"<value>","k1":"<value>",...}
std::string wideEvent(size_t keys, const std::string& value) {
    std::string json = "{";
    for (size_t i = 0; i < keys; ++i) {
        json += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":\"" + value + "\"";
    }
    return json + "}";
}

class TdpSignalHandlerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(handler.loadDataProducerConfig(test::readTestFile("config_basic.json")));
    }
    int32_t errorCount() { return test::heartbeat("TdpUnifiedSensingEventErrorCount"); }

    hostlog::LogCapture logs;
    TdpSignalHandler handler;
};

// Only a changed value gives signals, upper-cased; objects flatten (five
// levels below the top at most), string arrays join, other values are skipped.
TEST_F(TdpSignalHandlerTest, ChangedValuesGiveSignals) {
    const auto deep = [](const std::string& v) {
        return R"({"a":{"b":{"c":{"d":{"e":{"f":")" + v + R"(","g":{"h":")" + v + R"("}}}}}}})";
    };
    const std::pair<std::string, std::vector<std::string>> steps[] = {
        {R"({"volume":"5","audio":{"state":"idle","out":{"route":"spk"}},"tags":["a"]})", {}},
        {R"({"volume":"6"})", {"VOLUME_6", "VOLUME_CHANGED"}},
        {R"({"volume":"6"})", {}},
        {R"({"audio":{"state":"playing","out":{"route":"bt"}},"tags":["a","b"]})",
         {"AUDIO_STATE_PLAYING", "AUDIO_STATE_CHANGED", "AUDIO_OUT_ROUTE_BT",
          "AUDIO_OUT_ROUTE_CHANGED", "TAGS_A,B", "TAGS_CHANGED"}},
        {R"({"tags":["a",1]})", {}},
        {R"({"tags":["a","b"]})", {}},
        {R"({"tags":[]})", {"TAGS_", "TAGS_CHANGED"}},
        {deep("1"), {}},
        {deep("2"), {"A_B_C_D_E_F_2", "A_B_C_D_E_F_CHANGED"}},
        {R"({"n":1.5e308,"b":false,"z":null,"a":[[["x"]]],"o":{},"x":"1"})", {}},
    };
    const int32_t before = errorCount();
    for (const auto& step : steps) {
        EXPECT_EQ(handler.processEcsEvent(step.first), step.second) << step.first;
    }
    EXPECT_EQ(handler.getKeyStates(),
              (std::unordered_map<std::string, std::string>{{"volume", "6"},
                                                            {"audio_state", "playing"},
                                                            {"audio_out_route", "bt"},
                                                            {"tags", ""},
                                                            {"a_b_c_d_e_f", "2"},
                                                            {"x", "1"}}));
    EXPECT_EQ(logs.count(kTag, "processNestedEcsState:Unknown Event value type, skipping."), 3u);
    EXPECT_EQ(logs.count(kTag, "too many"), 0u);
    EXPECT_EQ(errorCount(), before);
}

// A new configuration replaces the emit criteria; remembered states stay.
TEST_F(TdpSignalHandlerTest, ReconfigurationReplacesCriteriaAndKeepsStates) {
    handler.processEcsEvent(R"({"volume":"1"})");
    ASSERT_TRUE(handler.loadDataProducerConfig(
        R"({"ecs_sensory_events":{"event_emit_criteria":["alarm_state_idle"]}})"));
    EXPECT_THAT(handler.processEcsEvent(R"({"volume":"2"})"),
                ElementsAre("VOLUME_2", "VOLUME_CHANGED"));
    EXPECT_FALSE(handler.getDataEventTriggered());
    // What the storage is seeded with: every remembered key's state.
    EXPECT_THAT(handler.getSignalStorageInitVector(),
                ::testing::UnorderedElementsAre("VOLUME_2", "VOLUME_CHANGED"));
}

// A client inventing new keys must not grow the daemon: keys past the limit
// are not remembered, while the remembered ones keep signalling.
TEST_F(TdpSignalHandlerTest, KeysPastTheLimitAreNotRemembered) {
    const size_t limit = TdpSignalHandler::kMaxKeys;
    EXPECT_THAT(handler.processEcsEvent(wideEvent(limit + 10, "a")), IsEmpty());
    EXPECT_EQ(handler.getKeyStates().size(), limit);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_WARN, kTag,
                              "processEcsEvent:10 new ECS keys not remembered, already " +
                                  std::to_string(limit) + " keys."));
    const std::string last = "k" + std::to_string(limit + 9);
    EXPECT_THAT(handler.processEcsEvent(R"({"k0":"b",")" + last + R"(":"b"})"),
                ElementsAre("K0_B", "K0_CHANGED"));
}

TEST_F(TdpSignalHandlerTest, MoreThanThirtySignalsBeforeATopLevelMemberDropTheEvent) {
    // 16 changed keys give 32 signals; the 17th top-level member fails the event.
    handler.processEcsEvent(wideEvent(17, "a"));
    const int32_t before = errorCount();
    EXPECT_THAT(handler.processEcsEvent(wideEvent(17, "b")), IsEmpty());
    EXPECT_EQ(errorCount(), before + 1);
    EXPECT_TRUE(logs.contains(
        ANDROID_LOG_ERROR, kTag,
        "processEcsEvent:TdpSignalStorage::processEcsEvent() - ECS event json either had too many "
        "layers (more than 5) or too many signals (30)."));
    // Keys handled before the failing member keep their new state.
    EXPECT_EQ(handler.getKeyStates().at("k0"), "b");
    EXPECT_EQ(handler.getKeyStates().at("k16"), "a");

    // The same overflow inside one nested object is skipped silently.
    handler.processEcsEvent("{\"n\":" + wideEvent(17, "a") + "}");
    logs.clear();
    EXPECT_EQ(handler.processEcsEvent("{\"n\":" + wideEvent(17, "b") + "}").size(), 32u);
    EXPECT_EQ(errorCount(), before + 1);
    EXPECT_EQ(logs.count(kTag, "too many"), 0u);
}

TEST_F(TdpSignalHandlerTest, BadEventsAreCountedOrSkippedNeverThrown) {
    std::string deepObjects;
    for (int i = 0; i < 8000; ++i) {
        deepObjects += "{\"a\":";
    }
    deepObjects += "\"x\"" + std::string(8000, '}');
    const std::string oversized =
        "processEcsEvent:ECS event of " + std::to_string(TdpSignalHandler::kMaxEventBytes + 11) +
        " bytes is larger than " + std::to_string(TdpSignalHandler::kMaxEventBytes) +
        " bytes, dropped.";
    const std::pair<std::string, std::string> rows[] = {
        // event, error line ("": not counted)
        {"", kUnparsable},
        {"volume=5", kUnparsable},
        {R"({"volume":"5"} x)", kUnparsable},
        {R"(["volume","5"])", kUnparsable},
        {R"({"volume":"\uD800"})", kUnparsable},
        // Nesting far beyond any limit must not exhaust the stack while parsing.
        {std::string(60000, '['), kUnparsable},
        {deepObjects, ""},
        {"{\"blob\":\"" + std::string(TdpSignalHandler::kMaxEventBytes, 'x') + "\"}", oversized},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first.substr(0, 40));
        TdpSignalHandler fresh;
        ASSERT_TRUE(fresh.loadDataProducerConfig(test::readTestFile("config_basic.json")));
        logs.clear();
        const int32_t before = errorCount();
        EXPECT_THAT(fresh.processEcsEvent(row.first), IsEmpty());
        EXPECT_EQ(errorCount(), before + (row.second.empty() ? 0 : 1));
        EXPECT_EQ(fresh.getEventReceived(), row.second.empty());
        if (!row.second.empty()) {
            EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, row.second))
                << hostlog::describe(logs.entries());
        }
        EXPECT_FALSE(fresh.getDataEventTriggered());
    }
}

}  // namespace
}  // namespace tdp
}  // namespace fact
