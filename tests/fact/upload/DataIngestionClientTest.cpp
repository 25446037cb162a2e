#include "fact/upload/DataIngestionClient.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <future>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/upload/IHttpClient.h"
#include "fact/upload/IUploadApiAuthenticator.h"
#include "fact/upload/MapAuthenticator.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::DataIngestionClient;

const char kTag[] = "Vemo:DataIngestionClient";
const std::string kMetadata =
    "{\"campaign_id\":\"c-1\",\"differential_privacy\":\"{\\\"cohort_size\\\":5}\"}";

// Fakes at the client's seams, for synchronous uploads: an HTTP client that
// records every request and answers 200, and a counted fixed token.
struct FakeHttpClient : fact::IHttpClient {
    struct Call {
        std::string url;
        std::unordered_map<std::string, std::string> headers;
        std::string body;
    };
    std::future<fact::Response> sendRequest(
        const std::string& url, const std::unordered_map<std::string, std::string>& headers,
        const std::string& body) override {
        calls.push_back({url, headers, body});
        return std::async(std::launch::deferred, [] { return fact::Response{"", 200}; });
    }
    std::vector<Call> calls;
};

struct FakeAuthenticator : fact::IUploadApiAuthenticator {
    std::string getAuthToken() override {
        ++requests;
        return "tok-9";
    }
    int requests = 0;
};

class DataIngestionClientTest : public ::testing::Test {
  protected:
    bool upload(const std::string& metadata = kMetadata) {
        return client.upload(std::vector<int>{1, -1}, metadata, "app", "cohort");
    }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    std::shared_ptr<FakeHttpClient> http = std::make_shared<FakeHttpClient>();
    std::shared_ptr<FakeAuthenticator> auth = std::make_shared<FakeAuthenticator>();
    DataIngestionClient client{auth, http};
};

TEST_F(DataIngestionClientTest, PostsWithExactlyTheTwoHeadersToTheConfiguredEndpoint) {
    EXPECT_TRUE(upload());
    ASSERT_EQ(http->calls.size(), 1u);
    EXPECT_EQ(http->calls[0].url, "https://ingestion.vemo.nimbel.com/maskedFAVs");
    EXPECT_EQ(http->calls[0].headers,
              (std::unordered_map<std::string, std::string>{{"Content-Type", "application/json"},
                                                            {"x-qzt-access-token", "tok-9"}}));
    const std::pair<const char*, const char*> bases[] = {
        {"https://lab.example/", "https://lab.example/maskedFAVs"},
        {"https://lab.example/v2", "https://lab.example/v2/maskedFAVs"},
    };
    for (const auto& base : bases) {
        root.writeBuildProps({{DataIngestionClient::kUrlProperty, base.first}});
        EXPECT_TRUE(upload());
        EXPECT_EQ(http->calls.back().url, base.second);
    }
}

// The token never leaves over anything but TLS, whatever the property says.
TEST_F(DataIngestionClientTest, BaseUrlThatIsNotHttpsPostsNothingAndAsksForNoToken) {
    for (const std::string base : {"http://lab.example", "ftp://lab.example", "lab.example:443"}) {
        root.writeBuildProps({{DataIngestionClient::kUrlProperty, base}});
        logs.clear();
        EXPECT_FALSE(upload());
        EXPECT_EQ(logs.count(kTag, ""), 1u);
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                                  "upload:Refusing to upload to " + base +
                                      "/maskedFAVs: the ingestion URL must start with https://"));
    }
    root.writeBuildProps({{DataIngestionClient::kUrlProperty, "HTTPS://lab.example"}});
    EXPECT_TRUE(upload());
    EXPECT_EQ(http->calls.size(), 1u);
    EXPECT_EQ(auth->requests, 1);
}

// Each refusal's text is in ParseCampaignMetadata's table.
TEST_F(DataIngestionClientTest, BadMetadataPostsNothingAndAsksForNoToken) {
    const int32_t before = fact::FactHeartbeatMetric::GetInstance().getCount(
        "DataIngestionClientCampaignMetadataFailure");
    EXPECT_FALSE(upload("not json"));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "upload:Failed to parse campaign metadata: Failed to parse campaign "
                              "metadata json string, error code 3"));
    EXPECT_EQ(fact::FactHeartbeatMetric::GetInstance().getCount(
                  "DataIngestionClientCampaignMetadataFailure"),
              before + 1);
    EXPECT_TRUE(http->calls.empty());
    EXPECT_EQ(auth->requests, 0);
}

TEST_F(DataIngestionClientTest, MapAuthenticatorReadsTheProvisionedTokenEachTime) {
    fact::MapAuthenticator authenticator;
    root.provision(1, "map-token-1");
    EXPECT_EQ(authenticator.getAuthToken(), "map-token-1");
    root.provision(1, "map-token-2");
    EXPECT_EQ(authenticator.getAuthToken(), "map-token-2");
}

}  // namespace
