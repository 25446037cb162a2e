#include "fact/upload/DataIngestionClient.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "FakeHttpClient.h"
#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/upload/DataIngestionClientWrapper.h"
#include "fact/upload/MapAuthenticator.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::DataIngestionClient;
using vemo::test::FakeAuthenticator;
using vemo::test::FakeHttpClient;
using namespace std::chrono_literals;

const char kTag[] = "Vemo:DataIngestionClient";
const std::string kMetadata =
    "{\"campaign_id\":\"c-1\",\"differential_privacy\":\"{\\\"cohort_size\\\":5}\"}";
const std::string kDocument =
    "{\"campaignId\":\"c-1\",\"maskedFederatedAnalyticsData\":{\"applicationId\":\"app\","
    "\"cohortId\":\"cohort\",\"cohortSize\":5,\"maskedFederatedAnalyticsVector\":"
    "\"AQAAAP////8=\",\"vectorEncoding\":\"base64\",\"elementDatatypeEndianness\":false}}";
const char* const kCounters[] = {"DataIngestionClientCampaignMetadataFailure",
                                 "DataIngestionClientMapTokenErrorCount",
                                 "DataIngestionClientUploadResponseErrorCount"};

class DataIngestionClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : kCounters) {
            before[name] = heartbeat.getCount(name);
        }
    }
    // How much each counter moved during the test.
    std::map<std::string, int32_t> counted() {
        std::map<std::string, int32_t> moved;
        for (const char* name : kCounters) {
            if (heartbeat.getCount(name) != before[name]) {
                moved[name] = heartbeat.getCount(name) - before[name];
            }
        }
        return moved;
    }
    bool upload(const std::string& metadata = kMetadata) {
        return client.upload(std::vector<int>{1, -1}, metadata, "app", "cohort");
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    fact::FactHeartbeatMetric& heartbeat = fact::FactHeartbeatMetric::GetInstance();
    std::map<std::string, int32_t> before;
    std::shared_ptr<FakeHttpClient> http = std::make_shared<FakeHttpClient>();
    std::shared_ptr<FakeAuthenticator> auth = std::make_shared<FakeAuthenticator>("tok-9");
    DataIngestionClient client{auth, http};
};

TEST_F(DataIngestionClientTest, PostsTheDocumentWithTokenToTheDefaultEndpoint) {
    EXPECT_TRUE(upload());
    const auto calls = http->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].url, "https://ingestion.vemo.nimbel.com/maskedFAVs");
    EXPECT_EQ(calls[0].body, kDocument);
    EXPECT_EQ(calls[0].headers,
              (std::unordered_map<std::string, std::string>{{"Content-Type", "application/json"},
                                                            {"x-qzt-access-token", "tok-9"}}));
    EXPECT_EQ(logs.messages(kTag),
              std::vector<std::string>{"upload:Successfully uploaded masked FAVs"});
    EXPECT_TRUE(counted().empty());
}

TEST_F(DataIngestionClientTest, EndpointBaseComesFromTheProperty) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://lab.example:8443", "https://lab.example:8443/maskedFAVs"},
        {"https://lab.example/", "https://lab.example/maskedFAVs"},
        {"https://lab.example/v2", "https://lab.example/v2/maskedFAVs"},
    };
    for (const auto& c : cases) {
        root.writeBuildProps({{DataIngestionClient::kUrlProperty, c.first}});
        EXPECT_TRUE(upload());
        EXPECT_EQ(http->calls().back().url, c.second);
    }
}

struct StatusCase {
    int32_t status;
    bool success;
};
void PrintTo(const StatusCase& c, std::ostream* os) {
    *os << c.status;
}

class UploadStatusTest : public DataIngestionClientTest,
                         public ::testing::WithParamInterface<StatusCase> {};

TEST_P(UploadStatusTest, OnlyExactly200Succeeds) {
    http->answer(GetParam().status, "body " + std::to_string(GetParam().status));
    EXPECT_EQ(upload(), GetParam().success);
    if (GetParam().success) {
        EXPECT_TRUE(counted().empty());
        return;
    }
    EXPECT_EQ(counted(),
              (std::map<std::string, int32_t>{{"DataIngestionClientUploadResponseErrorCount", 1}}));
    const std::string code = std::to_string(GetParam().status);
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{"upload:HTTP error code: " + code,
                                        "upload:HTTP error body: body " + code,
                                        "upload:Error in uploading masked FAVs"}));
    EXPECT_EQ(logs.count(kTag, "upload:"), 3u);
}

INSTANTIATE_TEST_SUITE_P(Statuses, UploadStatusTest,
                         ::testing::Values(StatusCase{200, true}, StatusCase{201, false},
                                           StatusCase{204, false}, StatusCase{302, false},
                                           StatusCase{401, false}, StatusCase{500, false}),
                         [](const ::testing::TestParamInfo<StatusCase>& info) {
                             return "Status" + std::to_string(info.param.status);
                         });

TEST_F(DataIngestionClientTest, TransportFailureIsCountedAndLogged) {
    http->failWith("curl request failed: Timeout was reached");
    EXPECT_FALSE(upload());
    EXPECT_EQ(counted(),
              (std::map<std::string, int32_t>{{"DataIngestionClientUploadResponseErrorCount", 1}}));
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{
                  "upload:Error in getting http response: curl request failed: Timeout was "
                  "reached",
                  "upload:Error in uploading masked FAVs"}));
}

TEST_F(DataIngestionClientTest, BadMetadataPostsNothingAndAsksForNoToken) {
    const std::pair<std::string, std::string> cases[] = {
        {"not json", "Failed to parse campaign metadata json string, error code 3"},
        {"{\"campaign_id\":\"c\",\"differential_privacy\":\"{}\",\"more\":1}",
         "Invalid campaign metadata json string"},
        {"{\"campaign_id\":\"c\",\"differential_privacy\":\"{\\\"cohort_size\\\":5.5}\"}",
         "Invalid differential privacy json string"},
    };
    for (const auto& c : cases) {
        logs.clear();
        EXPECT_FALSE(upload(c.first));
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                                  "upload:Failed to parse campaign metadata: " + c.second))
            << hostlog::describe(logs.entries());
    }
    EXPECT_EQ(counted(),
              (std::map<std::string, int32_t>{{"DataIngestionClientCampaignMetadataFailure", 3}}));
    EXPECT_TRUE(http->calls().empty());
    EXPECT_EQ(auth->requests(), 0);
}

TEST_F(DataIngestionClientTest, TokenFailurePostsNothing) {
    DataIngestionClient noToken(std::make_shared<FakeAuthenticator>("no token here", true), http);
    EXPECT_FALSE(noToken.upload(std::vector<int>{1}, kMetadata, "app", "cohort"));
    EXPECT_TRUE(http->calls().empty());
    EXPECT_EQ(counted(),
              (std::map<std::string, int32_t>{{"DataIngestionClientMapTokenErrorCount", 1}}));
    EXPECT_EQ(logs.messages(kTag),
              std::vector<std::string>{"upload:Failed to get auth token: no token here"});
}

TEST_F(DataIngestionClientTest, ConcurrentAsyncUploadsAllArrive) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 8;
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([this, t] {
            for (int k = 0; k < kPerThread; ++k) {
                client.uploadAsync(std::vector<int>{t, k}, kMetadata, "app",
                                   std::to_string(t * kPerThread + k));
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    ASSERT_TRUE(client.waitForUploads(60s));
    std::set<std::string> cohorts;
    for (const auto& call : http->calls()) {
        const auto at = call.body.find("\"cohortId\":\"") + 12;
        cohorts.insert(call.body.substr(at, call.body.find('"', at) - at));
    }
    EXPECT_EQ(cohorts.size(), static_cast<size_t>(kThreads * kPerThread));
    EXPECT_EQ(http->calls().size(), static_cast<size_t>(kThreads * kPerThread));
    EXPECT_EQ(logs.count(kTag, "upload:Successfully uploaded masked FAVs"),
              static_cast<size_t>(kThreads * kPerThread));
}

TEST_F(DataIngestionClientTest, WaitingSeesUploadsStillRunningAndOutlivesTheClient) {
    http->hold();
    {
        DataIngestionClient shortLived(auth, http);
        shortLived.uploadAsync(std::vector<int>{7}, kMetadata, "app", "held");
        EXPECT_FALSE(shortLived.waitForUploads(50ms));
        EXPECT_EQ(shortLived.uploadsInFlight(), 1u);
        // A copy shares the count of uploads in flight.
        const DataIngestionClient copy = shortLived;
        EXPECT_EQ(copy.uploadsInFlight(), 1u);
        client = copy;
    }
    // The upload thread holds its own copy: the client it came from is gone.
    http->release();
    ASSERT_TRUE(client.waitForUploads(60s));
    EXPECT_EQ(client.uploadsInFlight(), 0u);
    ASSERT_EQ(http->calls().size(), 1u);
    EXPECT_NE(http->calls()[0].body.find("\"cohortId\":\"held\""), std::string::npos);
}

TEST_F(DataIngestionClientTest, MapAuthenticatorReadsTheProvisionedToken) {
    fact::MapAuthenticator authenticator;
    root.provision(1, "map-token-1");
    EXPECT_EQ(authenticator.getAuthToken(), "map-token-1");
    root.provision(1, "map-token-2");
    EXPECT_EQ(authenticator.getAuthToken(), "map-token-2");
}

TEST_F(DataIngestionClientTest, MapAuthenticatorThrowsWhenTheDeviceHasNoToken) {
    fact::MapAuthenticator authenticator;
    try {
        authenticator.getAuthToken();
        FAIL() << "a token without provisioning";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Error in getting MAP token");
    }
    EXPECT_EQ(logs.messages("Vemo:MapAuthenticator"),
              std::vector<std::string>{"getAuthToken:Error in getting MAP token"});
}

TEST(DataIngestionClientWrapper, HandsOutOneClientToEveryThread) {
    std::vector<DataIngestionClient*> seen(4);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = &fact::DataIngestionClientWrapper::getInstance(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(std::set<DataIngestionClient*>(seen.begin(), seen.end()).size(), 1u);
    EXPECT_EQ(seen[0]->uploadsInFlight(), 0u);
}

}  // namespace
