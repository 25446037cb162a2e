// The entry points end to end, through the public C header only.

#include <fact/fact_api.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <atomic>
#include <cmath>
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
using fact::test::editedCampaign;
using fact::test::eventText;

const std::string kTag = "Vemo:FactApi";
const std::string kProducer = "UnifiedSensingService";
const std::string kMetadata =
    R"({"differential_privacy":"{\"cohort_size\": 100}","campaign_id":"wakeword_latency"})";

struct Delivered {
    std::vector<int> values;
    std::string applicationId;
    std::string metadata;
};

// The C callbacks forward to whatever the running test installs.
std::mutex gMutex;  // guards the four below
std::vector<Delivered> gDelivered;
std::vector<std::pair<std::string, std::string>> gConfigs;
std::function<int()> gConfigAnswer = [] { return 0; };
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
    return gConfigAnswer();
}

std::vector<std::pair<std::string, std::string>> gSplit;
int recordSplit(const char* name, const char* value) {
    gSplit.emplace_back(name, value);
    return 0;
}
int refuseSplit(const char*, const char*) {
    return 7;
}

int position(const std::vector<int>& values) {
    int found = -1;
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] == 1 && found < 0) {
            found = static_cast<int>(i);
        } else if (values[i] != 0) {
            return -2;  // not one-hot
        }
    }
    return found;
}

class FactApiTest : public ::testing::Test {
  protected:
    void SetUp() override {
        {
            // Released before calling in: callbacks take it under the library mutex.
            std::lock_guard<std::mutex> lock(gMutex);
            gDelivered.clear();
            gConfigs.clear();
            gConfigAnswer = [] { return 0; };
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

    std::string write(const std::string& name, const std::string& text) {
        const std::string path = root.path("/data/" + name);
        root.writeFile("/data/" + name, text);
        return path;
    }

    static std::string event(const std::string& device, const std::string& latency,
                             const std::string& locale, const std::string& confidence) {
        return eventText(kProducer, {{"device_type", device},
                                     {"latency_ms", latency},
                                     {"locale", locale},
                                     {"confidence", confidence}});
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture log;
};

TEST_F(FactApiTest, DeliversExactVectorsIdsAndMetadata) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        ASSERT_EQ(1u, gConfigs.size());
        EXPECT_EQ(kProducer, gConfigs[0].first);
        EXPECT_EQ(R"({"ecs_sensory_events":[{"name":"wakeword","priority":1}]})",
                  gConfigs[0].second);
    }
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
    for (const Row& row : rows) {
        ASSERT_EQ(0u, factDataProducerAdapter_SendEvent(
                          kProducer.c_str(),
                          event("echo_dot", row.latency, row.locale, row.confidence).c_str()));
    }
    const auto got = delivered();
    ASSERT_EQ(rows.size(), got.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(61u, got[i].values.size());
        EXPECT_EQ(rows[i].position, position(got[i].values));
        EXPECT_EQ("UnifiedSensingService_echo\\_dot_wakeword_latency", got[i].applicationId);
        EXPECT_EQ(kMetadata, got[i].metadata);
    }
    EXPECT_TRUE(log.contains(4, kTag,
                             "fact_CreateCampaign:Load Campaign Configuration from Path: " +
                                 dataPath("campaign_basic.json")));
    EXPECT_EQ(rows.size(), log.count(kTag,
                                     "factDataProducerAdapter_SendEvent:Received Event "
                                     "from DataProducer: UnifiedSensingService"));
    EXPECT_TRUE(log.contains(3, kTag,
                             "operator():Send Vector of ApplicationId: "
                             "UnifiedSensingService_echo\\_dot_wakeword_latency"));
}

TEST_F(FactApiTest, EpsilonZeroForgesEveryEventUniformly) {
    const std::string path = write(
        "eps0.json",
        editedCampaign("campaign_basic.json", {{"/differential_privacy_config/epsilon", "0"}}));
    ASSERT_EQ(0u, fact_CreateCampaign(path.c_str()));
    const int events = 300;
    for (int i = 0; i < events; ++i) {
        ASSERT_EQ(0u, factDataProducerAdapter_SendEvent(
                          kProducer.c_str(), event("echo", "250", "en-US", "0.9").c_str()));
    }
    const auto got = delivered();
    ASSERT_EQ(static_cast<size_t>(events), got.size());
    std::set<int> positions;
    int truePosition = 0;
    for (const auto& d : got) {
        const int p = position(d.values);
        ASSERT_GE(p, 0);
        positions.insert(p);
        truePosition += p == 47 ? 1 : 0;
    }
    // Uniform over 61 positions: about 4.9 hits of the true one and about 60
    // distinct positions; a kept truth would give 300 hits.
    EXPECT_LT(truePosition, 30);
    EXPECT_GT(positions.size(), 40u);
}

TEST_F(FactApiTest, RefusesBadArgumentsWithTheirLines) {
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
        {[] { return fact_CreateCampaign("/no/such/campaign.json"); },
         "fact_CreateCampaign: Failed to load campaign config from path: /no/such/campaign.json "
         "Error: Failed to open config file: /no/such/campaign.json"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        log.clear();
        EXPECT_EQ(1u, row.call());
        EXPECT_TRUE(log.contains(6, kTag, row.line)) << hostlog::describe(log.entries());
    }
    // The earlier vector callback survived the refused null one.
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    ASSERT_EQ(0u, factDataProducerAdapter_SendEvent(kProducer.c_str(),
                                                    event("d", "1", "en-US", "0.1").c_str()));
    EXPECT_EQ(1u, delivered().size());
}

TEST_F(FactApiTest, BadEventsFailWithTheLibrarysTextAndDeliverNothing) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    const std::string deep = std::string(30000, '[') + std::string(30000, ']');
    struct Row {
        std::string event, error;
    };
    const std::vector<Row> rows = {
        {"{", "Failed to parse json: Missing a name for object member."},
        {R"({"data_producer": "p", "attributes": [{"key": "a", "value": "b"}])",
         "Failed to parse json: Missing a comma or '}' after an object member."},
        {"{\"data_producer\": \"\xff\"}", "Failed to parse json: Invalid encoding in string."},
        {deep, "Invalid schema: #\nInvalid keyword: type\nInvalid document: #"},
        {deep + deep, "Oversized InputEvent json: 120000 bytes, limit 65536"},
        {R"({"data_producer": 5, "attributes": [{"key": "a", "value": "b"}]})",
         "Invalid schema: #/properties/data_producer\nInvalid keyword: type\n"
         "Invalid document: #/data_producer"},
        {R"({"data_producer": "p", "attributes": []})",
         "Invalid schema: #/properties/attributes\nInvalid keyword: minItems\n"
         "Invalid document: #/attributes"},
        {R"({"attributes": [{"key": "a", "value": "b"}]})",
         "Invalid schema: #\nInvalid keyword: required\nInvalid document: #"},
        {R"({"data_producer": "p", "attributes": [{"key": "a", "value": 1}]})",
         "Invalid schema: #/properties/attributes/items/properties/value\nInvalid keyword: "
         "type\nInvalid document: #/attributes/0/value"},
        {event("d", "abc", "en-US", "0.5"), "stoi"},
        {event("d", "99999999999", "en-US", "0.5"), "stoi"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        log.clear();
        EXPECT_EQ(1u, factDataProducerAdapter_SendEvent(kProducer.c_str(), row.event.c_str()));
        EXPECT_TRUE(log.contains(6, kTag, "factDataProducerAdapter_SendEvent: " + row.error))
            << hostlog::describe(log.entries());
    }
    EXPECT_TRUE(delivered().empty());
}

TEST_F(FactApiTest, BadCampaignFilesAreCleanErrors) {
    const std::string dir = root.path("/data");
    root.writeFile("/data/placeholder", "");
    struct Row {
        std::string path, inner;
    };
    const std::vector<Row> rows = {
        {dir, "Failed to open config file: " + dir},
        {dataPath("empty.json"), "Failed to parse " + dataPath("empty.json") + ". Content: "},
        {dataPath("not_utf8.json"), "Failed to parse " + dataPath("not_utf8.json") + ". Content: " +
                                        fact::test::readText(dataPath("not_utf8.json"))},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        log.clear();
        EXPECT_EQ(1u, fact_CreateCampaign(row.path.c_str()));
        EXPECT_TRUE(log.contains(6, kTag,
                                 "fact_CreateCampaign: Failed to load campaign config "
                                 "from path: " +
                                     row.path + " Error: " + row.inner))
            << hostlog::describe(log.entries());
    }
}

TEST_F(FactApiTest, RefusedConfigurationFailsButKeepsTheCampaign) {
    gConfigAnswer = [] { return 3; };
    EXPECT_EQ(1u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    EXPECT_TRUE(log.contains(6, kTag,
                             "fact_CreateCampaign: Data Producer callback failed for "
                             "campaign: wakeword_latency"));
    gConfigAnswer = [] { return 0; };
    EXPECT_EQ(0u, factDataProducerAdapter_SendEvent(kProducer.c_str(),
                                                    event("d", "1", "en-US", "0.1").c_str()));
    EXPECT_EQ(1u, delivered().size());
}

TEST_F(FactApiTest, SplitInvertsTheApplicationId) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_two_producers.json").c_str()));
    ASSERT_EQ(0u, fact_SplitApplicationId("C_1", "tdp_a\\_b_c\\__C_1", recordSplit));
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ((Pairs{{"x", "a_b"}, {"y", "c_"}}), gSplit);

    struct Row {
        std::string appId, error;
    };
    const std::vector<Row> rows = {
        {"other_a_c_C_1", "ApplicationId other_a_c_C_1 does not belong to campaign: C_1"},
        {"tdp_a_c_C_2", "ApplicationId tdp_a_c_C_2 does not belong to campaign: C_1"},
        {"tdp_a_b_c_C_1", "ApplicationId tdp_a_b_c_C_1 has 3 values for 2 cohort filters"},
        {"tdp_C_1", "ApplicationId tdp_C_1 does not belong to campaign: C_1"},
    };
    for (const Row& row : rows) {
        log.clear();
        EXPECT_EQ(1u, fact_SplitApplicationId("C_1", row.appId.c_str(), recordSplit));
        EXPECT_TRUE(log.contains(6, kTag, "fact_SplitApplicationId: " + row.error))
            << hostlog::describe(log.entries());
    }
    EXPECT_EQ(1u, fact_SplitApplicationId("C_1", "tdp_a_c_C_1", refuseSplit));
    EXPECT_EQ(1u, fact_SplitApplicationId("C_9", "tdp_a_c_C_9", recordSplit));
}

TEST_F(FactApiTest, SplitReversesIdsTheCampaignComposed) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    for (const std::string device : {"echo", "echo_dot", "_a__b_", "x\\y"}) {
        gSplit.clear();
        {
            std::lock_guard<std::mutex> lock(gMutex);
            gDelivered.clear();
        }
        ASSERT_EQ(0u, factDataProducerAdapter_SendEvent(
                          kProducer.c_str(), event(device, "1", "en-US", "0.1").c_str()));
        const auto got = delivered();
        ASSERT_EQ(1u, got.size());
        ASSERT_EQ(0u, fact_SplitApplicationId("wakeword_latency", got[0].applicationId.c_str(),
                                              recordSplit));
        ASSERT_EQ(1u, gSplit.size());
        EXPECT_EQ("device_type", gSplit[0].first);
        EXPECT_EQ(device, gSplit[0].second);
    }
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
    for (unsigned int size : {0u, 9u, 11u}) {
        log.clear();
        EXPECT_EQ(1u, factVector_Deserialize("C_1", values.data(), size, recordVector));
        EXPECT_TRUE(log.contains(6, kTag, "factVector_Deserialize:vectorSize is invalid"));
    }
    EXPECT_EQ(1u, factVector_Deserialize("C_2", values.data(), 10, recordVector));
    EXPECT_EQ(1u, delivered().size());
}

TEST_F(FactApiTest, DeletedCampaignCountsNothing) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    EXPECT_EQ(0u, fact_DeleteCampaign("wakeword_latency"));
    EXPECT_TRUE(
        log.contains(4, kTag, "fact_DeleteCampaign:Delete Campaign with Id: wakeword_latency"));
    EXPECT_EQ(0u, factDataProducerAdapter_SendEvent(kProducer.c_str(),
                                                    event("d", "1", "en-US", "0.1").c_str()));
    EXPECT_TRUE(delivered().empty());
    EXPECT_EQ(1u, fact_DeleteCampaign("wakeword_latency"));
}

TEST_F(FactApiTest, CallsFromInsideACallbackAreRefused) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    std::vector<fact_status_t> inner;
    gInsideVectorCallback = [&] {
        inner.push_back(fact_DeleteCampaign("wakeword_latency"));
        inner.push_back(factDataProducerAdapter_SendEvent("p", "{}"));
    };
    ASSERT_EQ(0u, factDataProducerAdapter_SendEvent(kProducer.c_str(),
                                                    event("d", "1", "en-US", "0.1").c_str()));
    gInsideVectorCallback = nullptr;
    EXPECT_EQ((std::vector<fact_status_t>{1u, 1u}), inner);
    EXPECT_TRUE(log.contains(6, kTag,
                             "fact_DeleteCampaign:called from inside a library callback, "
                             "refused"));
    // The refused delete left the campaign in place, and the library is usable.
    EXPECT_EQ(0u, fact_DeleteCampaign("wakeword_latency"));
}

TEST_F(FactApiTest, ConcurrentCallersAreSerialised) {
    ASSERT_EQ(0u, fact_CreateCampaign(dataPath("campaign_basic.json").c_str()));
    const int threads = 4;
    const int perThread = 150;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            const std::string text = event("dev" + std::to_string(t), "250", "en-US", "0.9");
            for (int i = 0; i < perThread; ++i) {
                if (factDataProducerAdapter_SendEvent(kProducer.c_str(), text.c_str()) != 0) {
                    ++failures;
                }
                if (i % 50 == 0 &&
                    fact_SplitApplicationId("wakeword_latency",
                                            ("UnifiedSensingService_d_wakeword_latency"),
                                            [](const char*, const char*) { return 0; }) != 0) {
                    ++failures;
                }
            }
        });
    }
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(0, failures.load());
    const auto got = delivered();
    ASSERT_EQ(static_cast<size_t>(threads * perThread), got.size());
    long sum = 0;
    for (const auto& d : got) {
        for (int v : d.values)
            sum += v;
    }
    EXPECT_EQ(threads * perThread, sum);
}

}  // namespace
