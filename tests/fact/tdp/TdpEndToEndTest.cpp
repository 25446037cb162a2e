// The producer as the daemon wires it: the process's TdpManager connected to
// the real analytics library, a campaign that configures it, and ECS events
// fed through its callback until vectors come out of the library.
#include <android/log.h>
#include <fact/fact_api.h>
#include <gtest/gtest.h>

#include <sstream>

#include "TdpTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using test::heartbeat;
using test::VectorRecorder;

TEST(TdpEndToEndTest, EcsTraceBecomesVectorsThroughTheAnalyticsLibrary) {
    vemo::test::TempDeviceRoot root;
    root.writeBuildProps({{"ro.product.config.type", "A1RABVCI"}, {"ro.product.locale", "en-GB"}});
    hostlog::LogCapture logs;
    VectorRecorder::clear();
    ASSERT_EQ(factVemo_SetVectorCallback(&VectorRecorder::callback), 0u);

    TdpManager& manager = TdpManager::GetInstance();
    manager.connect();
    const TdpManager::EcsCallback ecs = manager.getEcsCallback();
    const std::string campaign = std::string(TDP_TEST_DATA_DIR) + "/campaign.json";
    ASSERT_EQ(fact_CreateCampaign(campaign.c_str()), 0u) << hostlog::describe(logs.entries());
    ASSERT_TRUE(manager.isEnabled());

    std::vector<std::string> trace;
    std::istringstream lines(test::readTestFile("ecs_trace.jsonl"));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) {
            trace.push_back(line);
        }
    }
    const int32_t badEvents = heartbeat("TdpUnifiedSensingEventErrorCount");
    for (size_t i = 0; i < trace.size(); ++i) {
        if (i + 1 == trace.size()) {
            // The device's locale changes before the last event; it is re-read.
            root.writeFile("/data/property/persist.prop", "persist.sys.locale=de-DE\n");
        }
        ecs(trace[i]);
    }
    EXPECT_EQ(heartbeat("TdpUnifiedSensingEventErrorCount"), badEvents + 1);

    // One-hot positions as campaign.json lays the vector out: sensor output
    // 0-6 (2 alarm, 4 bluetooth, 5 media, 6 volume_change), time delta 7-11
    // (11 now), device type 12-15 (14 A1RABVCI), locale 16-19 (18 en-GB, 19 de-DE).
    const auto oneHot = [](std::initializer_list<size_t> hot) {
        std::vector<int> values(20, 0);
        for (const size_t at : hot) {
            values[at] = 1;
        }
        return values;
    };
    const std::string first = "TelemetryDataProducer_A1RABVCI_hc-1,hc-2_tdp-e2e";
    const std::vector<std::pair<std::string, std::vector<int>>> expected = {
        {first, oneHot({6, 11, 14, 18})},
        {first, oneHot({2, 11, 14, 18})},
        {first, oneHot({2, 11, 14, 18})},
        {first, oneHot({2, 11, 14, 18})},
        {first, oneHot({5, 11, 14, 18})},
        {"TelemetryDataProducer_A1RABVCI_hc-3_tdp-e2e", oneHot({4, 11, 14, 19})},
    };
    const auto received = VectorRecorder::received();
    ASSERT_EQ(received.size(), expected.size()) << hostlog::describe(logs.entries());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("vector " + std::to_string(i));
        EXPECT_EQ(received[i].applicationId, expected[i].first);
        EXPECT_EQ(received[i].metadata,
                  R"({"differential_privacy":"{\"cohort_size\": 0}","campaign_id":"tdp-e2e"})");
        EXPECT_EQ(received[i].values, expected[i].second);
    }
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, "Vemo:TdpManager",
                              "sendEvent:TdpManager::sendEvent() - "
                              R"({"data_producer":"TelemetryDataProducer","attributes":[)"
                              R"({"key":"device_type","value":"A1RABVCI"},)"
                              R"({"key":"locale","value":"de-DE"},)"
                              R"({"key":"homecard_uuid","value":"hc-3"},)"
                              R"({"key":"sensor_output","value":"bluetooth"},)"
                              R"({"key":"time_delta_seconds","value":"0"}]})"));
    EXPECT_EQ(logs.count("Vemo:TdpManager", "Failed to send"), 0u);

    // A campaign whose producer configuration breaks the schema fails to load
    // and leaves the producer as it was.
    std::string badCampaign = test::readTestFile("campaign.json");
    const size_t version = badCampaign.find("\"version\": \"1\"");
    ASSERT_NE(version, std::string::npos);
    badCampaign.replace(version, 14, "\"version\": \"2\"");
    root.writeFile("/data/vemo/bad_campaign.json", badCampaign);
    const int32_t loadErrors = heartbeat("TdpLoadConfigurationErrorCount");
    EXPECT_EQ(fact_CreateCampaign(root.path("/data/vemo/bad_campaign.json").c_str()), 1u);
    EXPECT_EQ(heartbeat("TdpLoadConfigurationErrorCount"), loadErrors + 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:TdpManager",
                              "loadDataProducerConfig:Invalid keyword: enum"));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:FactApi",
                              "fact_CreateCampaign: Data Producer callback failed for campaign: "
                              "tdp-e2e"))
        << hostlog::describe(logs.entries());
    EXPECT_TRUE(manager.isEnabled());
}

}  // namespace
}  // namespace tdp
}  // namespace fact
