// The fact manager with the real analytics library, on a fresh device root.
#include "aggregation/FactManager.h"

#include <android/log.h>
#include <fact/fact_api.h>
#include <gtest/gtest.h>

#include "TempDeviceRoot.h"
#include "hostlog/LogCapture.h"

namespace {

const char kTag[] = "Vemo:FactManager";
const char kConfig[] = "/data/vemo//config";

class FactManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.writeFile(
            "/data/vemo/campaign.json",
            vemo::test::readHostFile(std::string(FACT_TEST_DATA_DIR) + "/campaign_basic.json"));
    }
    // True when the fixture's campaign is loaded (and unloads it).
    static bool campaignLoaded() { return fact_DeleteCampaign("wakeword_latency") == 0; }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    vemo::FactManager manager;
};

TEST_F(FactManagerTest, RoutesByTheExactDataProducerName) {
    std::vector<std::string> events;
    EXPECT_EQ(manager.factRequest("c", "UnifiedSensingService", "early"), 0);  // no callback yet
    manager.registerUnifiedSensingCallback([&](const std::string& e) { events.push_back(e); });
    for (const char* producer : {"unifiedsensingservice", "Other", "UnifiedSensingService"}) {
        EXPECT_EQ(manager.factRequest("c", producer, producer), 0);
    }
    EXPECT_EQ(events, std::vector<std::string>{"UnifiedSensingService"});
    EXPECT_EQ(logs.count(kTag, "FACT request not yet implemented"), 2u);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, kTag,
                              "factRequest:FACT request not yet implemented. Message sent by "
                              "'unifiedsensingservice'. Returning OK"));
}

TEST_F(FactManagerTest, RemembersEveryCampaignPathAndCreatesItAgainAtStartup) {
    manager.startupCampaign();  // no file yet: nothing, silently
    EXPECT_TRUE(logs.messages(kTag).empty());

    EXPECT_EQ(manager.factRequest("c", "FactOrvuManager", "/data/vemo/missing.json"), 0);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "startCampaign:Failed to create campaign from path "
                              "/data/vemo/missing.json with error code 1"));
    EXPECT_EQ(root.readFile(kConfig), "/data/vemo/missing.json");

    root.writeFile(kConfig, "/data/vemo/campaign.json\nsecond line");
    manager.startupCampaign();
    EXPECT_TRUE(campaignLoaded());
    EXPECT_EQ(root.readFile(kConfig), "/data/vemo/campaign.json");

    vemo::test::removeTree(root.path("/data/vemo"));
    manager.startCampaign("/data/vemo/campaign.json");
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "startCampaign:Failed to open default config file: "
                              "/data/vemo//config"));
}

}  // namespace
