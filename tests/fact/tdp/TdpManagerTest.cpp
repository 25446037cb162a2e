#include <android/log.h>
#include <fact/fact_api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidjson/pointer.h>

#include <atomic>
#include <functional>

#include "TdpTestSupport.h"
#include "TdpVectorRecorder.h"
#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpJson.h"
#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kTag[] = "Vemo:TdpManager";
const char kProducer[] = "TelemetryDataProducer";

class FakeClock : public TdpClock {
  public:
    TdpTimePoint now() const override { return TdpTimePoint(std::chrono::nanoseconds(nanos_)); }
    void set(milliseconds t) { nanos_ = std::chrono::nanoseconds(t).count(); }

  private:
    std::atomic<int64_t> nanos_{int64_t{1000} * 1000000000};
};

// The test's view of the analytics library's send entry point.
struct RecordingSender {
    uint32_t operator()(const char* producer, const char* event) {
        sent.emplace_back(producer, event);
        return status;
    }
    std::vector<std::pair<std::string, std::string>> sent;
    uint32_t status = 0;
};

// config_basic.json with one edit applied to its DOM.
std::string editedConfig(const std::function<void(rapidjson::Document&)>& edit) {
    rapidjson::Document doc = parseJson(test::readTestFile("config_basic.json"));
    edit(doc);
    return writeJson(doc);
}

std::string attribute(const std::string& event, const std::string& key) {
    rapidjson::Document doc = parseJson(event);
    for (const auto& a : doc["attributes"].GetArray()) {
        if (key == a["key"].GetString()) {
            return a["value"].GetString();
        }
    }
    return "(missing)";
}

class TdpManagerTest : public ::testing::Test {
  protected:
    TdpManagerTest()
        : manager(clock, [this](const char* p, const char* e) { return sender(p, e); }) {
        root.writeBuildProps(
            {{"ro.product.config.type", "A1RABVCI"}, {"ro.product.locale", "en-GB"}});
        manager.connect();
    }
    void configure() {
        ASSERT_EQ(
            manager.loadDataProducerConfig(kProducer, test::readTestFile("config_basic.json")), 0);
    }
    void at(int64_t ms, const std::string& ecs) {
        clock.set(milliseconds(ms));
        manager.handleEcsEvent(ecs);
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    FakeClock clock;
    RecordingSender sender;
    TdpManager manager;
};

struct ConfigRow {
    const char* name;
    const char* producer;
    std::string config;
    int result;
    std::vector<std::pair<int, std::string>> lines;  // the manager's lines after the first
    bool enabledAfter;
};

class TdpManagerConfigTest : public TdpManagerTest,
                             public ::testing::WithParamInterface<ConfigRow> {};

TEST_P(TdpManagerConfigTest, ResultLinesAndStateAfter) {
    const ConfigRow& row = GetParam();
    configure();
    at(1000, R"({"ucids":"u","alarm":{"state":"idle"}})");
    at(2000, R"({"alarm":{"state":"ringing"}})");
    logs.clear();

    EXPECT_EQ(manager.loadDataProducerConfig(row.producer, row.config), row.result);
    std::vector<std::pair<int, std::string>> lines;
    for (const auto& entry : logs.entries()) {
        if (entry.tag == kTag) {
            lines.emplace_back(entry.priority, entry.message);
        }
    }
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), std::make_pair(int{ANDROID_LOG_DEBUG},
                                            std::string("loadDataProducerConfig:TdpManager::"
                                                        "loadDataProducerConfig")));
    lines.erase(lines.begin());
    EXPECT_EQ(lines, row.lines);
    EXPECT_EQ(manager.isEnabled(), row.enabledAfter);
    // Refusals before loading leave the running configuration alone; the
    // others leave the producer empty.
    EXPECT_EQ(manager.currentOutputSignal().name, row.enabledAfter ? "alarm" : "");
    // Only a configured producer sends when the alarm stops.
    sender.sent.clear();
    at(3000, R"({"alarm":{"state":"idle"}})");
    EXPECT_EQ(sender.sent.size(), row.enabledAfter ? 1u : 0u);
}

std::vector<std::pair<int, std::string>> invalid(const std::string& schema,
                                                 const std::string& keyword,
                                                 const std::string& document) {
    const std::string f = "loadDataProducerConfig:";
    return {{ANDROID_LOG_ERROR, f + "Invalid schema: " + schema},
            {ANDROID_LOG_ERROR, f + "Invalid keyword: " + keyword},
            {ANDROID_LOG_ERROR, f + "Invalid document: " + document}};
}

std::vector<ConfigRow> configRows() {
    const std::string f = "loadDataProducerConfig:";
    const std::string priorities61 = editedConfig([](rapidjson::Document& d) {
        auto& list = d["ecs_sensory_events"]["output_priority"];
        for (int i = static_cast<int>(list.Size()); i < 61; ++i) {
            list.PushBack(rapidjson::Value("p" + std::to_string(i), d.GetAllocator()),
                          d.GetAllocator());
        }
    });
    const std::string sticky11 = editedConfig([](rapidjson::Document& d) {
        auto& sticky = d["ecs_sensory_events"]["sticky_signal_config"];
        for (int i = static_cast<int>(sticky.MemberCount()); i < 11; ++i) {
            rapidjson::Value entry(rapidjson::kObjectType);
            entry.AddMember("start_transition", rapidjson::Value(rapidjson::kArrayType),
                            d.GetAllocator());
            entry.AddMember("end_transition", rapidjson::Value(rapidjson::kArrayType),
                            d.GetAllocator());
            sticky.AddMember(rapidjson::Value("s" + std::to_string(i), d.GetAllocator()), entry,
                             d.GetAllocator());
        }
    });
    const std::string duplicate = editedConfig([](rapidjson::Document& d) {
        rapidjson::Pointer("/ecs_sensory_events/sticky_signal_config/timer/end_transition/0")
            .Set(d, "TIMER_STATE_RINGING");
    });
    return {
        {"OtherProducer",
         "FactOrvuManager",
         test::readTestFile("config_basic.json"),
         1,
         {{ANDROID_LOG_DEBUG, f + "Was not sent a data producer config meant for "
                                  "TelemetryDataProducer: FactOrvuManager"}},
         true},
        {"EmptyObject",
         kProducer,
         "{}",
         0,
         {{ANDROID_LOG_DEBUG, f + "Disabling Telemetry Data Producer due to empty configuration."}},
         false},
        {"EmptyText",
         kProducer,
         "",
         0,
         {{ANDROID_LOG_DEBUG, f + "Disabling Telemetry Data Producer due to empty configuration."}},
         false},
        {"NotJson",
         kProducer,
         R"({"version":"1",)",
         1,
         {{ANDROID_LOG_ERROR, f + R"(Could not parse json: {"version":"1",)"}},
         true},
        {"Version2", kProducer, editedConfig([](rapidjson::Document& d) { d["version"] = "2"; }), 1,
         invalid("/properties/version", "enum", "/version"), true},
        {"SixtyOnePriorities", kProducer, priorities61, 1,
         invalid("/properties/ecs_sensory_events/properties/output_priority", "maxItems",
                 "/ecs_sensory_events/output_priority"),
         true},
        {"ElevenStickySignals", kProducer, sticky11, 1,
         invalid("/properties/ecs_sensory_events/properties/sticky_signal_config", "maxProperties",
                 "/ecs_sensory_events/sticky_signal_config"),
         true},
        {"NoPassthrough", kProducer, editedConfig([](rapidjson::Document& d) {
             d["ecs_sensory_events"].RemoveMember("passthrough_config");
         }),
         1, invalid("/properties/ecs_sensory_events", "required", "/ecs_sensory_events"), true},
        {"DuplicateTransition",
         kProducer,
         duplicate,
         1,
         {{ANDROID_LOG_ERROR, f + "Could not set configuration: " + duplicate}},
         false},
    };
}

INSTANTIATE_TEST_SUITE_P(Rows, TdpManagerConfigTest, ::testing::ValuesIn(configRows()),
                         [](const ::testing::TestParamInfo<ConfigRow>& info) {
                             return info.param.name;
                         });

TEST_F(TdpManagerTest, StoredSignalsReportExactSecondsBeforeTheTriggeringEvent) {
    configure();
    at(1000000, R"({"ucids":"u","alarm":{"state":"idle"},"volume":"1"})");
    at(1000000, R"({"alarm":{"state":"ringing"}})");
    at(1010000, R"({"alarm":{"state":"idle"}})");
    // Snoozing an alarm that is already off triggers nothing; the next idle
    // triggers an event that still reports the alarm stored at 1010 s.
    at(1020000, R"({"alarm":{"state":"snoozed"}})");
    at(1085500, R"({"alarm":{"state":"idle"}})");
    at(1085500, R"({"volume":"2"})");
    ASSERT_EQ(sender.sent.size(), 4u);
    for (const auto& sent : sender.sent) {
        EXPECT_EQ(sent.first, kProducer);
    }
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"alarm", "0"}, {"alarm", "0"}, {"alarm", "-75"}, {"volume_change", "0"}};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(attribute(sender.sent[i].second, "sensor_output"), expected[i].first) << i;
        EXPECT_EQ(attribute(sender.sent[i].second, "time_delta_seconds"), expected[i].second) << i;
    }
}

TEST_F(TdpManagerTest, ConfigurationAfterEventsReseedsStickySignalsOnly) {
    at(1000, R"({"ucids":"u","alarm":{"state":"idle"},"volume":"1"})");
    at(2000, R"({"alarm":{"state":"ringing"},"volume":"2"})");
    EXPECT_THAT(sender.sent, IsEmpty());
    configure();
    // The remembered ringing alarm is on; the volume change seen before the
    // configuration is not a last signal.
    EXPECT_EQ(manager.currentOutputSignal().name, "alarm");
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateOn);
    at(3000, R"({"alarm":{"state":"idle"}})");
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateStored);
    ASSERT_EQ(sender.sent.size(), 1u);
    EXPECT_EQ(attribute(sender.sent[0].second, "sensor_output"), "alarm");

    at(4000, R"({"alarm":{"state":"ringing"}})");
    at(5000, R"({"alarm":{"state":"idle"}})");
    ASSERT_TRUE(
        manager.loadDataProducerConfig(kProducer, test::readTestFile("config_basic.json")) == 0);
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateNone);
}

TEST_F(TdpManagerTest, FirstEventSeedsStickySignalsFromItsOwnState) {
    configure();
    at(1000, R"({"ucids":"u","alarm":{"state":"ringing"}})");
    EXPECT_EQ(manager.currentOutputSignal().name, "alarm");
    EXPECT_THAT(sender.sent, IsEmpty());
}

TEST_F(TdpManagerTest, SendFailuresAreCountedAndLogged) {
    configure();
    sender.status = 1;
    auto& heartbeat = FactHeartbeatMetric::GetInstance();
    const int32_t before = heartbeat.getCount("TdpSendEventErrorCount");
    at(1000, R"({"ucids":"u","volume":"1"})");
    at(2000, R"({"volume":"2"})");
    EXPECT_EQ(sender.sent.size(), 1u);
    EXPECT_EQ(heartbeat.getCount("TdpSendEventErrorCount"), before + 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, "sendEvent:Failed to send data event, 1."));
}

TEST_F(TdpManagerTest, NothingIsSentBeforeConnectOrWithoutUcid) {
    TdpManager unconnected(clock, [this](const char* p, const char* e) { return sender(p, e); });
    ASSERT_EQ(
        unconnected.loadDataProducerConfig(kProducer, test::readTestFile("config_basic.json")), 0);
    unconnected.handleEcsEvent(R"({"ucids":"u","volume":"1"})");
    unconnected.handleEcsEvent(R"({"volume":"2"})");
    EXPECT_THAT(sender.sent, IsEmpty());
    EXPECT_EQ(logs.count(kTag, "sendEvent:TdpManager::sendEvent() - {"), 1u);

    configure();
    at(1000, R"({"volume":"1"})");
    at(2000, R"({"volume":"2"})");
    EXPECT_THAT(sender.sent, IsEmpty());
}

// The library's own send path, driven by a scripted clock: time deltas land
// in the campaign's exact bins.
TEST_F(TdpManagerTest, ScriptedTimeDeltasLandInTheirBins) {
    test::VectorRecorder::clear();
    ASSERT_EQ(factVemo_SetVectorCallback(&test::VectorRecorder::callback), 0u);
    const std::string campaign = std::string(TDP_TEST_DATA_DIR) + "/campaign.json";
    ASSERT_EQ(fact_CreateCampaign(campaign.c_str()), 0u) << hostlog::describe(logs.entries());
    rapidjson::Document doc = parseJson(test::readTestFile("campaign.json"));
    TdpManager library(clock, &factDataProducerAdapter_SendEvent);
    library.connect();
    ASSERT_EQ(library.loadDataProducerConfig(kProducer, writeJson(doc["data_producer_config"])), 0);
    const std::vector<std::pair<int64_t, std::string>> trace = {
        {1000000, R"({"ucids":"u","alarm":{"state":"idle"}})"},
        {1000000, R"({"alarm":{"state":"ringing"}})"},
        {1010000, R"({"alarm":{"state":"idle"}})"},
        {1020000, R"({"alarm":{"state":"snoozed"}})"},
        {1040999, R"({"alarm":{"state":"idle"}})"},
        {1041000, R"({"alarm":{"state":"snoozed"}})"},
        {1070000, R"({"alarm":{"state":"idle"}})"},
    };
    for (const auto& step : trace) {
        clock.set(milliseconds(step.first));
        library.handleEcsEvent(step.second);
    }
    const test::CampaignLayout layout("campaign.json");
    const auto received = test::VectorRecorder::received();
    ASSERT_EQ(received.size(), 4u) << hostlog::describe(logs.entries());
    EXPECT_THAT(layout.decode(received[0].values),
                ElementsAre("alarm", "now", "A1RABVCI", "en-GB"));
    EXPECT_THAT(layout.decode(received[1].values),
                ElementsAre("alarm", "now", "A1RABVCI", "en-GB"));
    EXPECT_THAT(layout.decode(received[2].values),
                ElementsAre("alarm", "last_minute", "A1RABVCI", "en-GB"));
    EXPECT_THAT(layout.decode(received[3].values),
                ElementsAre("alarm", "older", "A1RABVCI", "en-GB"));
}

}  // namespace
}  // namespace tdp
}  // namespace fact
