#include <fact/fact_api.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "TempDeviceRoot.h"
#include "common/DevicePaths.h"
#include "daemon/VemoDaemon.h"
#include "hostlog/LogCapture.h"

namespace {

using namespace std::chrono_literals;
const char kTag[] = "Vemo:VemoDaemon";
const char kService[] = "/dev/socket/binder/services/vemo.ipc.IFlgrService";

std::string campaignText() {
    return vemo::test::readHostFile(std::string(FACT_TEST_DATA_DIR) + "/campaign_basic.json");
}

// The analytics library refuses a call made from inside one of its callbacks;
// a set-up run from inside its configuration callback sees the vector
// callback refused.
vemo::VemoDaemon* gDaemon = nullptr;
vemo::VemoStatus gStatus = -1;
int setUpFromInsideTheLibrary(const char*, const char*) {
    gStatus = gDaemon->setup();
    return 0;
}

TEST(VemoDaemonTest, ARefusedVectorCallbackStopsSetupBeforeAnythingStarts) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/data/vemo/campaign.json", campaignText());
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    gDaemon = daemon.get();
    ASSERT_EQ(factDataProducerAdapter_SetConfigurationCallback("UnifiedSensingService",
                                                               &setUpFromInsideTheLibrary),
              0u);
    fact_CreateCampaign(root.path("/data/vemo/campaign.json").c_str());
    EXPECT_EQ(gStatus, 6);
    EXPECT_EQ(
        logs.messages(kTag),
        (std::vector<std::string>{
            "setup:Configuring vemod",
            "setup:Wakeword Gradient file does not exist, skipping initial cleanup",
            "setup:Setup vemo service", "setup:Could not set FACT vector callback. Status = 1"}));
    EXPECT_EQ(logs.count("Vemo:VemoManager", ""), 0u);
    EXPECT_EQ(logs.count("Vemo:TdpManager", ""), 0u);
    EXPECT_FALSE(root.exists(kService));
}

TEST(VemoDaemonTest, SetupRunsItsStepsInOrder) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/data/vemo/campaign.json", campaignText());
    root.writeFile(vemo::paths::kCampaignConfig, "/data/vemo/campaign.json");
    hostlog::LogCapture logs;
    auto daemon = vemo::VemoDaemon::make_unique();
    ASSERT_EQ(daemon->setup(), 0) << hostlog::describe(logs.entries());
    EXPECT_TRUE(root.exists(kService));

    // Each step: a tag and the start of its message.
    const std::vector<std::pair<std::string, std::string>> steps{
        {kTag, "setup:Configuring vemod"},
        {kTag, "setup:Setup vemo service"},
        {"Vemo:FactApi", "factVemo_SetVectorCallback:"},
        {"Vemo:VemoCoreWrapper", "vemoHandleCreate:"},  // the manager's core
        {"Vemo:VemoCoreWrapper", "vemoLibPrintAttributes:"},
        {"Vemo:TdpManager", "connect:TdpManager::connect()"},
        {"Vemo:FactManager",
         "startCampaign:Creating campaign with path '/data/vemo/campaign.json'"},
        {"Vemo:FlgrBinderHost", "start:addedBinderService, descriptor=vemo.ipc.IFlgrService"},
    };
    size_t next = 0;
    for (const hostlog::LogEntry& entry : logs.entries()) {
        if (next < steps.size() && entry.tag == steps[next].first &&
            entry.message.compare(0, steps[next].second.size(), steps[next].second) == 0) {
            ++next;
        }
    }
    EXPECT_EQ(next, steps.size()) << "missing or out of order: " << steps[next].second << "\n"
                                  << hostlog::describe(logs.entries());
}

TEST(VemoDaemonTest, StopBeforeRunIsNotLost) {
    auto daemon = vemo::VemoDaemon::make_unique();
    daemon->stop();
    auto finished = std::async(std::launch::async, [&daemon] { daemon->run(); });
    EXPECT_EQ(finished.wait_for(30s), std::future_status::ready);
}

}  // namespace
