// ECS events on several binder-like threads while campaigns (and so producer
// configurations) arrive through the analytics library on another: nothing
// deadlocks, nothing races (run under ThreadSanitizer), and every event the
// producer sends arrives as exactly one vector.
#include <fact/fact_api.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "TdpTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using test::VectorRecorder;

TEST(TdpConcurrencyTest, EventsAndConfigurationsFromManyThreads) {
    vemo::test::TempDeviceRoot root;
    root.writeBuildProps({{"ro.product.config.type", "A1RABVCI"}, {"ro.product.locale", "en-GB"}});
    hostlog::LogCapture logs;
    VectorRecorder::clear();
    ASSERT_EQ(factVemo_SetVectorCallback(&VectorRecorder::callback), 0u);

    // A second campaign whose empty producer configuration disables the producer.
    const std::string campaign = std::string(TDP_TEST_DATA_DIR) + "/campaign.json";
    std::string emptyConfig = test::readTestFile("campaign.json");
    const size_t at = emptyConfig.find("\"data_producer_config\"");
    const size_t end = emptyConfig.find("\"fact_compatibility_id\"");
    ASSERT_NE(at, std::string::npos);
    emptyConfig.replace(at, end - at, "\"data_producer_config\": {},\n  ");
    root.writeFile("/data/vemo/empty_config_campaign.json", emptyConfig);
    const std::string emptyCampaign = root.path("/data/vemo/empty_config_campaign.json");

    TdpManager& manager = TdpManager::GetInstance();
    manager.connect();
    ASSERT_EQ(fact_CreateCampaign(campaign.c_str()), 0u);
    ASSERT_TRUE(manager.isEnabled());
    const TdpManager::EcsCallback ecs = manager.getEcsCallback();
    ecs(R"({"ucids":"u","volume":"0","alarm":{"state":"idle"}})");
    const int32_t sendErrors = test::heartbeat("TdpSendEventErrorCount");

    constexpr int kEventThreads = 3;
    constexpr int kEventsPerThread = 900;
    constexpr int kCampaignLoads = 120;
    std::atomic<int> finished{0};
    std::atomic<int> campaignFailures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kEventThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEventsPerThread; ++i) {
                switch (i % 4) {
                    case 0:
                        ecs("{\"volume\":\"" + std::to_string(t * 1000 + i) + "\"}");
                        break;
                    case 1:
                        ecs(R"({"alarm":{"state":"ringing"}})");
                        break;
                    case 2:
                        ecs(R"({"alarm":{"state":"idle"},"media":{"state":"playing"}})");
                        break;
                    default:
                        ecs(i % 8 == 3 ? "not json" : R"({"media":{"state":"paused"}})");
                }
            }
            ++finished;
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < kCampaignLoads; ++i) {
            const std::string& path = i % 2 == 0 ? emptyCampaign : campaign;
            if (fact_CreateCampaign(path.c_str()) != 0) {
                ++campaignFailures;
            }
            // The producer's state is read while it changes.
            manager.currentOutputSignal();
        }
        ++finished;
    });

    const int total = static_cast<int>(threads.size());
    for (int i = 0; i < 6000 && finished < total; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (finished < total) {
        ADD_FAILURE() << "threads did not finish: deadlock";
        std::abort();
    }
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(campaignFailures, 0);
    EXPECT_TRUE(manager.isEnabled());  // the last load was the configuring campaign
    EXPECT_EQ(test::heartbeat("TdpSendEventErrorCount"), sendErrors);
    const size_t sent = logs.count("Vemo:TdpManager", "sendEvent:TdpManager::sendEvent() - {");
    EXPECT_GT(sent, 0u);
    EXPECT_EQ(VectorRecorder::received().size(), sent);
    EXPECT_EQ(logs.count("Vemo:FactApi", "refused"), 0u);
}

}  // namespace
}  // namespace tdp
}  // namespace fact
