#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "TdpTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/tdp/TdpEventProducer.h"
#include "fact/tdp/TdpJson.h"
#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using std::chrono::milliseconds;
using ::testing::IsEmpty;
using Lines = std::vector<std::pair<int, std::string>>;

using test::heartbeat;

const char kTag[] = "Vemo:TdpManager";
const char kProducer[] = "TelemetryDataProducer";

class FakeClock : public TdpClock {
  public:
    TdpTimePoint now() const override { return TdpTimePoint(std::chrono::nanoseconds(nanos_)); }
    void set(milliseconds t) { nanos_ = std::chrono::nanoseconds(t).count(); }

  private:
    std::atomic<int64_t> nanos_{int64_t{1000} * 1000000000};
};

std::string attribute(const std::string& event, const std::string& key) {
    rapidjson::Document doc = parseJson(event);
    for (const auto& a : doc["attributes"].GetArray()) {
        if (key == a["key"].GetString()) {
            return a["value"].GetString();
        }
    }
    return "(missing)";
}

// A configuration with `priorities` names p0, p1, ... of which the first
// `sticky` are sticky signals without transitions.
std::string generatedConfig(int priorities, int sticky) {
    std::string list;
    std::string signals;
    for (int i = 0; i < priorities; ++i) {
        const std::string name = "\"p" + std::to_string(i) + "\"";
        list += (i ? "," : "") + name;
        if (i < sticky) {
            signals += (i ? "," : "") + name + R"(:{"start_transition":[],"end_transition":[]})";
        }
    }
    return R"({"version":"1","ecs_sensory_events":{"event_emit_criteria":[],"output_priority":[)" +
           list + R"(],"sticky_signal_config":{)" + signals + R"(},"passthrough_config":{}}})";
}

// One line of the manager's loadDataProducerConfig.
Lines debug(const std::string& text) {
    return {{ANDROID_LOG_DEBUG, "loadDataProducerConfig:" + text}};
}
Lines error(const std::string& text) {
    return {{ANDROID_LOG_ERROR, "loadDataProducerConfig:" + text}};
}

// The lines of a schema failure at `path`, a member path such as "/version".
Lines invalid(const std::string& path, const std::string& keyword) {
    std::string schema;
    for (size_t at = 0, next; at != std::string::npos; at = next) {
        next = path.find('/', at + 1);
        schema += "/properties" + path.substr(at, next - at);
    }
    return {error("Invalid schema: " + schema)[0], error("Invalid keyword: " + keyword)[0],
            error("Invalid document: " + path)[0]};
}

class TdpManagerTest : public ::testing::Test {
  protected:
    TdpManagerTest() {
        root.writeBuildProps(
            {{"ro.product.config.type", "A1RABVCI"}, {"ro.product.locale", "en-GB"}});
        manager.connect();
    }
    int configure(TdpManager& target) {
        return target.loadDataProducerConfig(kProducer, test::readTestFile("config_basic.json"));
    }
    void at(int64_t ms, const std::string& ecs) {
        clock.set(milliseconds(ms));
        manager.handleEcsEvent(ecs);
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    FakeClock clock;
    std::vector<std::string> sent;  // the events handed to the sender
    uint32_t sendStatus = 0;
    TdpManager::EventSender sender = [this](const char* producer, const char* event) {
        EXPECT_STREQ(producer, kProducer);
        sent.emplace_back(event);
        return sendStatus;
    };
    TdpManager manager{clock, [this](const char* p, const char* e) { return sender(p, e); }};
};

TEST_F(TdpManagerTest, ConfigurationFailuresGiveTheirResultLinesAndState) {
    const std::string basic = test::readTestFile("config_basic.json");
    const Lines disabling = debug("Disabling Telemetry Data Producer due to empty configuration.");
    // A sticky member that the schema's pattern "additionalProperties" matches.
    const std::string patternNamed =
        R"({"version":"1","ecs_sensory_events":{"event_emit_criteria":[],"output_priority":["p"],)"
        R"("sticky_signal_config":{"additionalProperties":{"start_transition":[],)"
        R"("end_transition":[]}},"passthrough_config":{}}})";
    const std::string deep = "{\"x\":" + std::string(100, '[') + std::string(100, ']') + "," +
                             basic.substr(basic.find('{') + 1);
    const std::string huge =
        "{\"x\":\"" + std::string(1 << 20, 'a') + "\"," + basic.substr(basic.find('{') + 1);
    const struct {
        const char* producer;
        std::string config;
        int result;
        bool enabledAfter;
        Lines lines;  // after the first
    } rows[] = {
        {"FactOrvuManager", basic, 1, true,
         debug("Was not sent a data producer config meant for TelemetryDataProducer: "
               "FactOrvuManager")},
        {kProducer, "{}", 0, false, disabling},
        {kProducer, "", 0, false, disabling},
        {kProducer, R"({"version":"1",)", 1, true,
         error(R"(Could not parse json: {"version":"1",)")},
        {kProducer, generatedConfig(61, 0), 1, true,
         invalid("/ecs_sensory_events/output_priority", "maxItems")},
        {kProducer, generatedConfig(11, 11), 1, true,
         invalid("/ecs_sensory_events/sticky_signal_config", "maxProperties")},
        {kProducer,
         R"({"version":"1","ecs_sensory_events":{"event_emit_criteria":[],"output_priority":[],)"
         R"("sticky_signal_config":{}}})",
         1, true, invalid("/ecs_sensory_events", "required")},
        {kProducer, patternNamed, 1, false, error("Could not set configuration: " + patternNamed)},
        {kProducer, generatedConfig(5000, 0), 1, true,
         error("Configuration has too many array items (longest 5000, total 5000; limits 4096, "
               "16384)")},
        {kProducer, deep, 1, true, error("Configuration nests deeper than 64 levels")},
        {kProducer, huge, 1, true,
         error("Configuration too large: " + std::to_string(huge.size()) +
               " bytes (limit 1048576)")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.config);
        TdpManager target(clock, sender);
        target.connect();
        ASSERT_EQ(configure(target), 0);
        target.handleEcsEvent(R"({"ucids":"u","alarm":{"state":"idle"}})");
        target.handleEcsEvent(R"({"alarm":{"state":"ringing"}})");
        logs.clear();
        sent.clear();

        EXPECT_EQ(target.loadDataProducerConfig(row.producer, row.config), row.result);
        Lines logged;
        for (const auto& entry : logs.entries()) {
            if (entry.tag == kTag) {
                logged.emplace_back(entry.priority, entry.message);
            }
        }
        Lines expected = debug("TdpManager::loadDataProducerConfig");
        expected.insert(expected.end(), row.lines.begin(), row.lines.end());
        EXPECT_EQ(logged, expected);
        EXPECT_EQ(target.isEnabled(), row.enabledAfter);
        // Refusals before loading leave the running configuration alone; the
        // others leave the producer empty, and only a configured one sends.
        EXPECT_EQ(target.currentOutputSignal().name, row.enabledAfter ? "alarm" : "");
        target.handleEcsEvent(R"({"alarm":{"state":"idle"}})");
        EXPECT_EQ(sent.size(), row.enabledAfter ? 1u : 0u);
    }
}

// Each event reports the stored signal's time relative to the triggering
// event's, in whole seconds truncated toward zero.
TEST_F(TdpManagerTest, TimeDeltasAreExactWholeSeconds) {
    ASSERT_EQ(configure(manager), 0);
    at(1000000, R"({"ucids":"u","alarm":{"state":"idle"},"volume":"1"})");
    at(1000000, R"({"alarm":{"state":"ringing"}})");
    at(1010000, R"({"alarm":{"state":"idle"}})");
    // Snoozing an alarm that is already off triggers nothing; the next idle
    // still reports the alarm stored at 1010 s.
    at(1020000, R"({"alarm":{"state":"snoozed"}})");
    at(1040999, R"({"alarm":{"state":"idle"}})");
    at(1041000, R"({"alarm":{"state":"snoozed"}})");
    at(1085500, R"({"alarm":{"state":"idle"}})");
    at(1085500, R"({"volume":"2"})");
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"alarm", "0"}, {"alarm", "0"}, {"alarm", "-30"}, {"alarm", "-75"}, {"volume_change", "0"}};
    ASSERT_EQ(sent.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(attribute(sent[i], "sensor_output"), expected[i].first) << i;
        EXPECT_EQ(attribute(sent[i], "time_delta_seconds"), expected[i].second) << i;
    }
}

TEST_F(TdpManagerTest, ConfigurationSeedsStickySignalsFromRememberedStatesOnly) {
    at(1000, R"({"ucids":"u","alarm":{"state":"idle"},"volume":"1"})");
    at(2000, R"({"alarm":{"state":"ringing"},"volume":"2"})");
    EXPECT_THAT(sent, IsEmpty());
    ASSERT_EQ(configure(manager), 0);
    // The remembered ringing alarm is on; the volume change seen before the
    // configuration is not a last signal.
    EXPECT_EQ(manager.currentOutputSignal().name, "alarm");
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateOn);
    at(3000, R"({"alarm":{"state":"idle"}})");
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateStored);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(attribute(sent[0], "sensor_output"), "alarm");
    ASSERT_EQ(configure(manager), 0);
    EXPECT_EQ(manager.currentOutputSignal().state, TdpSignal::kStateNone);

    // A configured producer's first event seeds them from its own state.
    TdpManager fresh(clock, sender);
    fresh.connect();
    ASSERT_EQ(configure(fresh), 0);
    fresh.handleEcsEvent(R"({"ucids":"u","alarm":{"state":"ringing"}})");
    EXPECT_EQ(fresh.currentOutputSignal().name, "alarm");
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(TdpManagerTest, TriggersWithoutOutputDeviceFactsOrUcidSendNothing) {
    ASSERT_EQ(configure(manager), 0);
    const int32_t noData = heartbeat("TdpEventNoDataErrorCount");
    // An alarm that was never on gives no output signal when it goes idle.
    at(1000, R"({"ucids":"u","alarm":{"state":"snoozed"},"volume":"0"})");
    at(2000, R"({"alarm":{"state":"idle"}})");
    EXPECT_EQ(heartbeat("TdpEventNoDataErrorCount"), noData + 1);

    // The device's facts are read for each event; one missing drops it.
    root.writeBuildProps({{"ro.product.locale", "en-GB"}});
    const int32_t deviceErrors = heartbeat("TdpDeviceInfoErrorCount");
    at(3000, R"({"volume":"1"})");
    EXPECT_EQ(heartbeat("TdpDeviceInfoErrorCount"), deviceErrors + 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:TdpEventProducer",
                              "produceEvent:Invalid device type string when retrieving device "
                              "type using __system_property_get()"));

    // Without a UCID nothing is produced, and that is not counted.
    TdpManager noUcid(clock, sender);
    noUcid.connect();
    ASSERT_EQ(configure(noUcid), 0);
    noUcid.handleEcsEvent(R"({"volume":"1"})");
    noUcid.handleEcsEvent(R"({"volume":"2"})");
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, "Vemo:TdpEventProducer",
                              "produceEvent:No UCID available for producing an event."));
    EXPECT_THAT(sent, IsEmpty());
    EXPECT_EQ(heartbeat("TdpEventNoDataErrorCount"), noData + 1);
}

// Times can come from any clock seam: far-apart ones saturate, never overflow.
TEST(TdpEventProducerTest, TimeDeltaSaturates) {
    const TdpSignal ancient("x", TdpTimePoint::min(), TdpSignal::kStateStored, 0);
    EXPECT_EQ(TdpEventProducer::timeDeltaSeconds(ancient, TdpTimePoint::max()),
              INT64_MIN / 1000000000);
}

TEST_F(TdpManagerTest, SendsOnlyOnceConnectedAndCountsFailures) {
    TdpManager unconnected(clock, sender);
    ASSERT_EQ(configure(unconnected), 0);
    unconnected.handleEcsEvent(R"({"ucids":"u","volume":"1"})");
    unconnected.handleEcsEvent(R"({"volume":"2"})");
    EXPECT_THAT(sent, IsEmpty());

    ASSERT_EQ(configure(manager), 0);
    sendStatus = 1;
    const int32_t before = heartbeat("TdpSendEventErrorCount");
    at(1000, R"({"ucids":"u","volume":"1"})");
    at(2000, R"({"volume":"2"})");
    EXPECT_EQ(sent.size(), 1u);
    EXPECT_EQ(heartbeat("TdpSendEventErrorCount"), before + 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, "sendEvent:Failed to send data event, 1."));
}

}  // namespace
}  // namespace tdp
}  // namespace fact
