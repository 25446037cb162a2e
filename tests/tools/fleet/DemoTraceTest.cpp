// The demo's campaign and generated traces through the real path of a device:
// the telemetry producer configured by the campaign, fed one device's ECS
// events, its input events counted by the analytics library. With the
// randomisation and the upload wait taken out of a copy of the campaign, the
// vectors that come out must add up to exactly the generator's truth.
#include <fact/fact_api.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <mutex>

#include "TempDeviceRoot.h"
#include "TraceGenerator.h"
#include "fact/tdp/TdpManager.h"

namespace vemo {
namespace fleet {
namespace {

const std::string kExamples = EXAMPLES_DIR;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::mutex gMutex;  // guards gSum and gApplicationIds
std::vector<long long> gSum;
std::vector<std::string> gApplicationIds;

void sumVectors(const int* values, unsigned int length, const char* applicationId, const char*) {
    std::lock_guard<std::mutex> lock(gMutex);
    gSum.resize(length, 0);
    for (unsigned int k = 0; k < length; ++k) {
        gSum[k] += values[k];
    }
    gApplicationIds.push_back(applicationId);
}

TEST(DemoTraceTest, OneDevicesTraceCountsExactlyTheTruth) {
    test::TempDeviceRoot root;
    root.writeBuildProps(
        {{"ro.product.config.type", "DEMOSPEAKER"}, {"ro.product.locale", "en-US"}});
    const std::string campaign = kExamples + "/campaigns/home_activity.json";
    const std::string usage = kExamples + "/demo/usage.json";
    TraceGenerator::Options options;
    options.devices = 3;
    options.eventsPerDevice = 60;
    options.seed = 42;
    const TraceGenerator::Result result = TraceGenerator(campaign, usage).generate(options);
    ASSERT_EQ(result.traces.size(), 3u);

    // Device 3's trace does not depend on how many devices there are.
    options.devices = 1;
    const TraceGenerator::Result alone = TraceGenerator(campaign, usage).generate(options);
    options.devices = 3;
    options.seed = 43;
    const TraceGenerator::Result otherSeed = TraceGenerator(campaign, usage).generate(options);
    EXPECT_EQ(alone.traces[0], result.traces[0]);
    EXPECT_NE(otherSeed.traces[2], result.traces[2]);

    // The same campaign, counted as is and sent on every event.
    std::string exact =
        replaced(test::readHostFile(campaign), "\"cohort_size\": 16", "\"cohort_size\": 0");
    exact = replaced(exact, "\"value\": 8}", "\"value\": 0}");
    root.writeFile("/data/vemo/exact.json", exact);
    ASSERT_EQ(factVemo_SetVectorCallback(&sumVectors), 0u);
    fact::tdp::TdpManager& manager = fact::tdp::TdpManager::GetInstance();
    manager.connect();
    ASSERT_EQ(fact_CreateCampaign(root.path("/data/vemo/exact.json").c_str()), 0u);
    const auto ecs = manager.getEcsCallback();
    for (const std::string& event : result.traces[0]) {
        ecs(event);
    }

    // The truth of one device: generate it alone.
    options.devices = 1;
    options.seed = 42;
    rapidjson::Document truth;
    truth.Parse(TraceGenerator(campaign, usage).generate(options).truthJson.c_str());
    const auto& item = truth["items"][0];
    std::vector<long long> counts;
    for (const auto& count : item["counts"].GetArray()) {
        counts.push_back(count.GetInt64());
    }
    std::lock_guard<std::mutex> lock(gMutex);
    ASSERT_EQ(gApplicationIds.size(), 60u);
    EXPECT_EQ(gApplicationIds.front(), truth["application_id"].GetString());
    EXPECT_EQ(item["reports"].GetInt64(), 60);
    EXPECT_EQ(gSum, counts);
}

TEST(DemoTraceTest, CampaignsAndModelsATraceCannotServeAreRefused) {
    test::TempDeviceRoot root;
    const std::string campaign = test::readHostFile(kExamples + "/campaigns/home_activity.json");
    const std::string usage = test::readHostFile(kExamples + "/demo/usage.json");
    const struct {
        std::string campaign;
        std::string usage;
        std::string message;
    } cases[] = {
        {replaced(campaign, "\"name\": \"sensor_output\"", "\"name\": \"time_delta_seconds\""),
         usage, "the campaign bins time_delta_seconds, which a generated trace cannot control"},
        {replaced(campaign, "\"ACTIVITY_CALL\"", "\"CALL_STATE_ON\""), usage,
         "the campaign has no passthrough signal ACTIVITY_<VALUE> for activity call"},
        {replaced(campaign, "DIALOG_TURN_CHANGED", "DIALOG_CHANGED"), usage,
         "the campaign's producer does not emit on DIALOG_TURN_CHANGED"},
        {campaign, replaced(usage, "\"news\":", "\"sport\":"), "card sport is in no bin"},
        {replaced(campaign, "[\"locale\"]", "[\"homecard_uuid\"]"), usage,
         "the campaign's cohort filter homecard_uuid would split a fleet"},
        {replaced(campaign, "\"time_seconds\"", "\"size_kb\""), usage,
         "the campaign's upload criterion must be one time_seconds wait"},
    };
    for (const auto& c : cases) {
        root.writeFile("/campaign.json", c.campaign);
        root.writeFile("/usage.json", c.usage);
        try {
            TraceGenerator(root.path("/campaign.json"), root.path("/usage.json"));
            ADD_FAILURE() << "accepted: " << c.message;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
        }
    }
}

}  // namespace
}  // namespace fleet
}  // namespace vemo
