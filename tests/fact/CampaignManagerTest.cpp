#include "fact/CampaignManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "FactTestSupport.h"
#include "TempDeviceRoot.h"

namespace {

using fact::CampaignManager;
using fact::InputEvent;
using fact::test::dataPath;
using fact::test::errorOf;
using fact::test::eventText;
using fact::test::heartbeatCount;
using fact::test::Pairs;
using namespace std::chrono_literals;

class FakeClock : public fact::SteadyClock {
  public:
    std::chrono::steady_clock::time_point now() const override { return current; }
    std::chrono::steady_clock::time_point current{};
};

class CampaignManagerTest : public ::testing::Test {
  protected:
    CampaignManagerTest() : clock(std::make_shared<FakeClock>()), manager(clock) {
        manager.SetSendVectorCallback(
            [this](const CampaignManager::VectorMap& vectors) { sends.push_back(vectors); });
    }

    // Loads campaign_two_producers.json with `edits`; privacy cannot be
    // scripted here, so it is made negligible unless an edit says otherwise.
    void load(Pairs edits = {}) {
        edits.insert(edits.begin(), {"/differential_privacy_config/epsilon", "3"});
        const std::string name = "/data/c" + std::to_string(files++) + ".json";
        root.writeFile(name, fact::test::editedCampaign("campaign_two_producers.json", edits));
        manager.LoadConfig(root.path(name));
    }

    void send(const std::string& x, const std::string& y, const std::string& alpha = "15") {
        manager.CreateOrUpdateVectorInMap(InputEvent(eventText(
            "tdp", {{"x", x}, {"y", y}, {"alpha", alpha}, {"beta", "b1"}, {"flag", "true"}})));
    }

    vemo::test::TempDeviceRoot root;
    int files = 0;
    std::shared_ptr<FakeClock> clock;
    CampaignManager manager;
    std::vector<CampaignManager::VectorMap> sends;
};

TEST_F(CampaignManagerTest, SumsPerApplicationIdUntilTheSizeCriterion) {
    load();
    send("a_b", "c");
    ASSERT_TRUE(sends.empty());
    const uint32_t one = manager.vectorsMemSize();
    const auto& first = manager.vectors().at("tdp_a\\_b_c_C_1");
    EXPECT_EQ(10u * 4 + 36 + first.metadata().size(), one);
    EXPECT_EQ(R"({"differential_privacy":"{\"cohort_size\": 100}","campaign_id":"C_1"})",
              first.metadata());
    EXPECT_EQ((std::vector<int32_t>{0, 0, 0, 0, 1, 0, 0, 0, 0, 1}), first.elements());

    send("a_b", "c", "25");
    send("other", "c");
    ASSERT_EQ(2u, manager.vectors().size());
    EXPECT_EQ((std::vector<int32_t>{0, 0, 0, 0, 1, 0, 1, 0, 0, 2}),
              manager.vectors().at("tdp_a\\_b_c_C_1").elements());
    EXPECT_EQ(3 * one, manager.vectorsMemSize());
    EXPECT_EQ(static_cast<int>(3 * one / 1024), heartbeatCount("VectorMemSizeInKb"));

    // An event without cohort attribute "y" counts nothing.
    manager.CreateOrUpdateVectorInMap(InputEvent(eventText("tdp", {{"x", "a"}})));
    EXPECT_EQ(3 * one, manager.vectorsMemSize());

    const uint32_t needed = (1024 + one - 1) / one;  // events to reach 1024 bytes
    for (uint32_t i = 3; i < needed - 1; ++i)
        send("a_b", "c");
    EXPECT_TRUE(sends.empty());
    send("a_b", "c");
    ASSERT_EQ(1u, sends.size());
    EXPECT_EQ(2u, sends[0].size());
    EXPECT_TRUE(manager.vectors().empty());
    EXPECT_EQ(0u, manager.vectorsMemSize());
}

TEST_F(CampaignManagerTest, TimeCriterionUsesWholeSecondsSinceTheLastSend) {
    load();
    clock->current += 3599s + 999ms;
    send("a", "b");
    EXPECT_TRUE(sends.empty());
    clock->current += 1ms;
    send("a", "b");
    ASSERT_EQ(1u, sends.size());
    EXPECT_EQ(2, sends[0].at("tdp_a_b_C_1").elements()[4]);
    clock->current += 3599s;
    send("a", "b");
    EXPECT_EQ(1u, sends.size());  // counted from the send, not from the start
}

// Time 0 sending every event is FactApiTest's end-to-end run.
TEST_F(CampaignManagerTest, WithoutASendCallbackTheCriterionJustClears) {
    load({{"/upload_frequency", R"([{"type": "time_seconds", "value": 0}])"}});
    manager.SetSendVectorCallback(nullptr);
    send("a", "b");
    EXPECT_TRUE(sends.empty());
    EXPECT_TRUE(manager.vectors().empty());
}

TEST_F(CampaignManagerTest, ChangedVectorLengthForAnIdIsRefused) {
    load();
    send("a", "b");
    load({{"/data/1", "-"}});
    const int before = heartbeatCount("VectorMismatchCount");
    EXPECT_EQ("Vector size mismatch for application id: tdp_a_b_C_1",
              errorOf([&] { send("a", "b"); }));
    EXPECT_EQ(before + 1, heartbeatCount("VectorMismatchCount"));
    EXPECT_EQ(10u, manager.vectors().at("tdp_a_b_C_1").elements().size());
}

// The configuration text reaching the producer is FactApiTest's (the product
// registers one producer); a producer refusing it is counted and named, and
// the new campaigns stay.
TEST_F(CampaignManagerTest, RefusedProducerConfigurationKeepsTheNewCampaigns) {
    int answer = 0;
    manager.SetDataProducerConfigCallback(
        "p", [&](const std::string&, const std::string&) { return answer; });
    manager.LoadConfig(dataPath("campaign_basic.json"));
    answer = 2;
    const int before = heartbeatCount("TdpLoadConfigurationErrorCount");
    EXPECT_EQ("Data Producer callback failed for campaign: C_1",
              errorOf([&] { manager.LoadConfig(dataPath("campaign_two_producers.json")); }));
    EXPECT_EQ(before + 1, heartbeatCount("TdpLoadConfigurationErrorCount"));
    EXPECT_NE(nullptr, manager.GetCampaign("C_1"));
    EXPECT_EQ(nullptr, manager.GetCampaign("wakeword_latency"));
}

TEST_F(CampaignManagerTest, FailedLoadsKeepOrDropTheCampaigns) {
    manager.LoadConfig(dataPath("campaign_basic.json"));
    // A loader error keeps the loaded campaign.
    EXPECT_NE("ok", errorOf([&] { manager.LoadConfig("/missing.json"); }));
    EXPECT_NE(nullptr, manager.GetCampaign("wakeword_latency"));
    // Privacy parameters that cannot serve the vector remove every campaign.
    EXPECT_EQ(
        "p should be less than 1. Please check your DifferentialPrivayConfig match with "
        "CampaignSchema",
        errorOf([&] {
            load({{"/differential_privacy_config/epsilon", "10"}});
        }));
    EXPECT_EQ(nullptr, manager.GetCampaign("wakeword_latency"));
    EXPECT_FALSE(manager.CheckUploadCriteria());
}

}  // namespace
