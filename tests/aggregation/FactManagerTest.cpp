// The fact manager with the real analytics library, on a fresh device root.

#include <android/log.h>
#include <fact/fact_api.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "TempDeviceRoot.h"
#include "aggregation/FactManager.h"
#include "hostlog/LogCapture.h"

namespace {

const char kTag[] = "Vemo:FactManager";
const char kConfig[] = "/data/vemo//config";
const char kCampaignPath[] = "/data/vemo/campaign.json";

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class FactManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.writeFile(kCampaignPath,
                       readFile(std::string(FACT_TEST_DATA_DIR) + "/campaign_basic.json"));
    }
    // True when the fixture's campaign is loaded (and unloads it).
    static bool campaignLoaded() { return fact_DeleteCampaign("wakeword_latency") == 0; }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    vemo::FactManager manager;
};

TEST_F(FactManagerTest, RoutesByTheExactDataProducerName) {
    std::vector<std::string> events;
    EXPECT_EQ(manager.factRequest("c", "UnifiedSensingService", "{\"early\":1}"), 0);
    manager.registerUnifiedSensingCallback([&](const std::string& e) { events.push_back(e); });
    const struct {
        const char* producer;
        bool delivered;
    } cases[] = {{"UnifiedSensingService", true},
                 {"unifiedsensingservice", false},
                 {"UnifiedSensingService ", false},
                 {"Other", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.producer);
        events.clear();
        logs.clear();
        EXPECT_EQ(manager.factRequest("client", c.producer, "{\"ecs\":1}"), 0);
        EXPECT_EQ(events, c.delivered ? std::vector<std::string>{"{\"ecs\":1}"}
                                      : std::vector<std::string>{});
        EXPECT_EQ(logs.contains(ANDROID_LOG_DEBUG, kTag,
                                "factRequest:FACT request not yet implemented. Message sent by '" +
                                    std::string(c.producer) + "'. Returning OK"),
                  !c.delivered);
    }
    EXPECT_FALSE(root.exists(kConfig));
}

TEST_F(FactManagerTest, CreatesTheCampaignAndRemembersItsPathEvenWhenCreationFails) {
    EXPECT_EQ(manager.factRequest("client", "FactOrvuManager", kCampaignPath), 0);
    EXPECT_TRUE(campaignLoaded());
    EXPECT_EQ(root.readFile(kConfig), kCampaignPath);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_INFO, kTag,
                              "startCampaign:Wrote new campaign path /data/vemo/campaign.json to "
                              "default file path /data/vemo//config"));

    manager.startCampaign("/data/vemo/missing.json");
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "startCampaign:Failed to create campaign from path "
                              "/data/vemo/missing.json with error code 1"));
    EXPECT_EQ(root.readFile(kConfig), "/data/vemo/missing.json");
}

TEST_F(FactManagerTest, StartupCreatesThePersistedCampaignAgain) {
    manager.startupCampaign();  // no file yet: nothing, silently
    EXPECT_TRUE(logs.messages(kTag).empty());
    EXPECT_FALSE(campaignLoaded());

    root.writeFile(kConfig, std::string(kCampaignPath) + "\nsecond line");
    manager.startupCampaign();
    EXPECT_TRUE(campaignLoaded());
    EXPECT_EQ(root.readFile(kConfig), kCampaignPath);
}

TEST_F(FactManagerTest, AnUnwritableCampaignFileIsLoggedAndTheCampaignStillCreated) {
    vemo::test::removeTree(root.path("/data/vemo"));
    root.writeFile("/data/vemo-elsewhere/campaign.json",
                   readFile(std::string(FACT_TEST_DATA_DIR) + "/campaign_basic.json"));
    manager.startCampaign("/data/vemo-elsewhere/campaign.json");
    EXPECT_TRUE(campaignLoaded());
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "startCampaign:Failed to open default config file: "
                              "/data/vemo//config"));
}

}  // namespace
