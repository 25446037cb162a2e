// The entry points end to end, through the public C header only.

#include <fact/fact_api.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "FactTestSupport.h"
#include "TempDeviceRoot.h"

namespace {

using fact::test::dataPath;
using fact::test::onePosition;
using fact::test::Pairs;

const std::string kTag = "Vemo:FactApi";
const std::string kProducer = "UnifiedSensingService";
const std::string kAppId = "UnifiedSensingService_echo\\_dot_wakeword_latency";
const std::string kMetadata =
    R"({"differential_privacy":"{\"cohort_size\": 100}","campaign_id":"wakeword_latency"})";

struct Delivered {
    std::vector<int> values;
    std::string applicationId;
    std::string metadata;
};

// The C callbacks forward to whatever the running test installs.
std::mutex gMutex;  // guards the three below
std::vector<Delivered> gDelivered;
Pairs gConfigs;
std::function<void()> gInsideVectorCallback;

void recordVector(const int* values, unsigned int length, const char* applicationId,
                  const char* metadata) {
    std::function<void()> inside;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gDelivered.push_back({std::vector<int>(values, values + length), applicationId, metadata});
        inside = gInsideVectorCallback;
    }
    if (inside)
        inside();
}

int recordConfig(const char* dataProducer, const char* configuration) {
    std::lock_guard<std::mutex> lock(gMutex);
    gConfigs.emplace_back(dataProducer, configuration);
    return 0;
}

Pairs gSplit;
int recordSplit(const char* name, const char* value) {
    gSplit.emplace_back(name, value);
    return 0;
}

class FactApiTest : public ::testing::Test {
  protected:
    void SetUp() override {
        {
            // Released before calling in: callbacks take it under the library mutex.
            std::lock_guard<std::mutex> lock(gMutex);
            gDelivered.clear();
            gConfigs.clear();
            gInsideVectorCallback = nullptr;
        }
        gSplit.clear();
        ASSERT_EQ(0u, factVemo_SetVectorCallback(recordVector));
        ASSERT_EQ(
            0u, factDataProducerAdapter_SetConfigurationCallback(kProducer.c_str(), recordConfig));
    }

    std::vector<Delivered> delivered() {
        std::lock_guard<std::mutex> lock(gMutex);
        return gDelivered;
    }

    static fact_status_t createBasic() {
        return fact_CreateCampaign(dataPath("campaign_basic.json").c_str());
    }

    static std::string event(const std::string& device, const std::string& latency = "1",
                             const std::string& locale = "en-US",
                             const std::string& confidence = "0.1") {
        return fact::test::eventText(kProducer, {{"device_type", device},
                                                 {"latency_ms", latency},
                                                 {"locale", locale},
                                                 {"confidence", confidence}});
    }

    static fact_status_t send(const std::string& text) {
        return factDataProducerAdapter_SendEvent(kProducer.c_str(), text.c_str());
    }

    ::testing::AssertionResult logged(int priority, const std::string& line) {
        if (log.contains(priority, kTag, line))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << hostlog::describe(log.entries());
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture log;
};

TEST_F(FactApiTest, DeliversExactVectorsIdsAndMetadata) {
    ASSERT_EQ(0u, createBasic());
    EXPECT_EQ((Pairs{{kProducer, R"({"ecs_sensory_events":[{"name":"wakeword","priority":1}]})"}}),
              gConfigs);
    // Names sorted: confidence (3 bins), latency_ms (5), locale (4): position
    // = 1 + 20 * confidence + 4 * latency + locale, 0 when that sum is 0.
    struct Row {
        std::string latency, locale, confidence;
        int position;
    };
    const std::vector<Row> rows = {
        {"250", "en-US", "0.9", 47}, {"700", "fr-FR", "0.6", 32}, {"60000", "en-GB", "0.9", 58},
        {"50", "de-DE", "0.1", 0},   {"50", "xx-XX", "0.9", 0},   {"99", "en-GB", "0.1", 2},
    };
    for (const Row& row : rows)
        ASSERT_EQ(0u, send(event("echo_dot", row.latency, row.locale, row.confidence)));
    const auto got = delivered();
    ASSERT_EQ(rows.size(), got.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(61u, got[i].values.size());
        EXPECT_EQ(rows[i].position, onePosition(got[i].values));
        EXPECT_EQ(kAppId, got[i].applicationId);
        EXPECT_EQ(kMetadata, got[i].metadata);
    }
    EXPECT_TRUE(logged(4, "fact_CreateCampaign:Load Campaign Configuration from Path: " +
                              dataPath("campaign_basic.json")));
    EXPECT_EQ(rows.size(), log.count(kTag,
                                     "factDataProducerAdapter_SendEvent:Received Event "
                                     "from DataProducer: UnifiedSensingService"));
    EXPECT_TRUE(logged(3, "operator():Send Vector of ApplicationId: " + kAppId));
}

TEST_F(FactApiTest, EpsilonZeroForgesEveryEventUniformly) {
    root.writeFile("/data/eps0.json",
                   fact::test::editedCampaign("campaign_basic.json",
                                              {{"/differential_privacy_config/epsilon", "0"}}));
    ASSERT_EQ(0u, fact_CreateCampaign(root.path("/data/eps0.json").c_str()));
    const int events = 300;
    for (int i = 0; i < events; ++i)
        ASSERT_EQ(0u, send(event("echo", "250", "en-US", "0.9")));
    const auto got = delivered();
    ASSERT_EQ(static_cast<size_t>(events), got.size());
    std::set<int> positions;
    int truePosition = 0;
    for (const auto& d : got) {
        const int p = onePosition(d.values);
        ASSERT_GE(p, 0);
        ASSERT_EQ(kMetadata, d.metadata);  // forged vectors are stamped too
        positions.insert(p);
        truePosition += p == 47 ? 1 : 0;
    }
    // Uniform over 61 positions: about 4.9 hits of the true one and about 60
    // distinct positions; a kept truth would give 300 hits.
    EXPECT_LT(truePosition, 30);
    EXPECT_GT(positions.size(), 40u);
}

TEST_F(FactApiTest, RefusesBadArgumentsAndEventsWithTheirLines) {
    ASSERT_EQ(0u, createBasic());
    const std::string dir = root.path("/data");
    root.writeFile("/data/placeholder", "");
    const std::string sendLine = "factDataProducerAdapter_SendEvent: ";
    struct Row {
        std::function<fact_status_t()> call;
        std::string line;
    };
    const std::vector<Row> rows = {
        {[] { return factVemo_SetVectorCallback(nullptr); },
         "factVemo_SetVectorCallback:vector_callback is null"},
        {[] { return factDataProducerAdapter_SetConfigurationCallback("", recordConfig); },
         "factDataProducerAdapter_SetConfigurationCallback:dataProducerName is empty"},
        {[] { return factDataProducerAdapter_SetConfigurationCallback("p", nullptr); },
         "factDataProducerAdapter_SetConfigurationCallback:config_callback is null"},
        {[] { return factDataProducerAdapter_SendEvent("", "{}"); },
         "factDataProducerAdapter_SendEvent:dataProducer is empty"},
        {[] { return factDataProducerAdapter_SendEvent("p", ""); },
         "factDataProducerAdapter_SendEvent:factEvent is empty"},
        {[] { return factDataProducerAdapter_SendEvent("p", nullptr); },
         "factDataProducerAdapter_SendEvent:factEvent is empty"},
        {[] { return fact_DeleteCampaign(""); }, "fact_DeleteCampaign:campaignId is empty"},
        {[] { return fact_DeleteCampaign("nope"); },
         "fact_DeleteCampaign: No campaign with id: nope"},
        {[] { return fact_SplitApplicationId("", "a", recordSplit); },
         "fact_SplitApplicationId:campaignId is empty"},
        {[] { return fact_SplitApplicationId("c", "", recordSplit); },
         "fact_SplitApplicationId:applicationId is empty"},
        {[] { return fact_SplitApplicationId("c", "a", nullptr); },
         "fact_SplitApplicationId:result_callback is null"},
        {[] { return factVector_Deserialize("", nullptr, 0, recordVector); },
         "factVector_Deserialize:campaignId is empty"},
        {[] { return factVector_Deserialize("c", nullptr, 0, nullptr); },
         "factVector_Deserialize:result_callback is null"},
        // The size is checked before the campaign is looked up.
        {[] { return factVector_Deserialize("no-such-campaign", nullptr, 0, recordVector); },
         "factVector_Deserialize:vectorSize is invalid"},
        // Every loader error (CampaignSchemaProviderTest has them all) ends here.
        {[&] { return fact_CreateCampaign(dir.c_str()); },
         "fact_CreateCampaign: Failed to load campaign config from path: " + dir +
             " Error: Failed to open config file: " + dir},
        // The parser's and the schema's texts are InputEventTest's; these reach
        // the log, as do the conversions behind the schema.
        {[&] { return send("{"); },
         sendLine + "Failed to parse json: Missing a name for object member."},
        {[&] { return send(std::string(120000, '[')); },
         sendLine + "Oversized InputEvent json: 120000 bytes, limit 65536"},
        {[&] {
             return send(R"({"data_producer": 5, "attributes": [{"key": "a", "value": "b"}]})");
         },
         sendLine + "Invalid schema: #/properties/data_producer\nInvalid keyword: type\n" +
             "Invalid document: #/data_producer"},
        {[&] { return send(event("d", "abc")); }, sendLine + "stoi"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        log.clear();
        EXPECT_EQ(1u, row.call());
        EXPECT_TRUE(logged(6, row.line));
    }
    // Nothing counted, and the earlier vector callback survived the null one.
    EXPECT_TRUE(delivered().empty());
    ASSERT_EQ(0u, send(event("d")));
    EXPECT_EQ(1u, delivered().size());
}

TEST_F(FactApiTest, SplitInvertsTheApplicationIdsTheCampaignComposed) {
    ASSERT_EQ(0u, createBasic());
    const std::vector<std::string> devices = {"echo_dot", "_a__b_", "x\\y"};
    for (const std::string& device : devices)
        ASSERT_EQ(0u, send(event(device)));
    const auto got = delivered();
    ASSERT_EQ(devices.size(), got.size());
    for (const auto& d : got)
        ASSERT_EQ(
            0u, fact_SplitApplicationId("wakeword_latency", d.applicationId.c_str(), recordSplit));
    EXPECT_EQ(
        (Pairs{{"device_type", "echo_dot"}, {"device_type", "_a__b_"}, {"device_type", "x\\y"}}),
        gSplit);

    // Two filters, in order, an escaped underscore next to the separator.
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_two_producers.json").c_str()));
    gSplit.clear();
    ASSERT_EQ(0u, fact_SplitApplicationId("C_1", "tdp_a\\_b_c\\__C_1", recordSplit));
    EXPECT_EQ((Pairs{{"x", "a_b"}, {"y", "c_"}}), gSplit);
    const Pairs refused = {
        {"other_a_c_C_1", "does not belong to campaign: C_1"},
        {"tdp_a_c_C_2", "does not belong to campaign: C_1"},
        {"tdp_a_b_c_C_1", "has 3 values for 2 cohort filters"},
        {"tdp_C_1", "does not belong to campaign: C_1"},
    };
    for (const auto& [appId, why] : refused) {
        log.clear();
        EXPECT_EQ(1u, fact_SplitApplicationId("C_1", appId.c_str(), recordSplit)) << appId;
        EXPECT_TRUE(logged(6, "fact_SplitApplicationId: ApplicationId " + appId + " " + why));
    }
    EXPECT_EQ(1u, fact_SplitApplicationId("C_1", "tdp_a_c_C_1",
                                          [](const char*, const char*) { return 7; }));
    EXPECT_EQ(1u, fact_SplitApplicationId("C_9", "tdp_a_c_C_9", recordSplit));
}

TEST_F(FactApiTest, DeserializeRebuildsTheCampaignVector) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_two_producers.json").c_str()));
    const std::vector<int> values = {3, 0, 1, 0, 0, 0, 0, 9, 0, -2};
    ASSERT_EQ(0u, factVector_Deserialize("C_1", values.data(), 10, recordVector));
    auto got = delivered();
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(values, got[0].values);
    EXPECT_EQ("C_1", got[0].applicationId);
    EXPECT_EQ(R"({"differential_privacy":"{\"cohort_size\": 100}","campaign_id":"C_1"})",
              got[0].metadata);
    for (unsigned int size : {9u, 11u}) {
        log.clear();
        EXPECT_EQ(1u, factVector_Deserialize("C_1", values.data(), size, recordVector));
        EXPECT_TRUE(logged(6, "factVector_Deserialize:vectorSize is invalid"));
    }
    EXPECT_EQ(1u, factVector_Deserialize("C_2", values.data(), 10, recordVector));
    EXPECT_EQ(1u, delivered().size());
}

TEST_F(FactApiTest, DeleteIsRefusedInsideACallbackThenStopsTheCounting) {
    ASSERT_EQ(0u, createBasic());
    std::vector<fact_status_t> inner;
    gInsideVectorCallback = [&] {
        inner.push_back(fact_DeleteCampaign("wakeword_latency"));
        inner.push_back(factDataProducerAdapter_SendEvent("p", "{}"));
    };
    ASSERT_EQ(0u, send(event("d")));
    gInsideVectorCallback = nullptr;
    EXPECT_EQ((std::vector<fact_status_t>{1u, 1u}), inner);
    EXPECT_TRUE(logged(6, "fact_DeleteCampaign:called from inside a library callback, refused"));

    // The refused delete left the campaign in place, and the library is usable.
    EXPECT_EQ(0u, fact_DeleteCampaign("wakeword_latency"));
    EXPECT_TRUE(logged(4, "fact_DeleteCampaign:Delete Campaign with Id: wakeword_latency"));
    EXPECT_EQ(0u, send(event("d")));
    EXPECT_EQ(1u, delivered().size());
    EXPECT_EQ(1u, fact_DeleteCampaign("wakeword_latency"));
}

TEST_F(FactApiTest, ConcurrentCallersAreSerialised) {
    ASSERT_EQ(0u, createBasic());
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < 150; ++i) {
                failures += send(event("dev" + std::to_string(t), "250", "en-US", "0.9")) != 0;
                if (i % 50 == 0)
                    failures += fact_SplitApplicationId(
                                    "wakeword_latency", "UnifiedSensingService_d_wakeword_latency",
                                    [](const char*, const char*) { return 0; }) != 0;
            }
        });
    }
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(0, failures.load());
    const auto got = delivered();
    ASSERT_EQ(600u, got.size());
    for (const auto& d : got)
        ASSERT_EQ(47, onePosition(d.values));
}

}  // namespace
