// The ingestion client with the product's HTTP client and authenticator,
// against a loopback HTTPS service.

#include <android/log.h>
#include <gtest/gtest.h>

#include <set>

#include "HttpsTestServer.h"
#include "MisbehavingServer.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/upload/CurlHttpClient.h"
#include "fact/upload/DataIngestionClient.h"
#include "fact/upload/MapAuthenticator.h"
#include "fact/upload/VectorEncoding.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::CurlHttpClient;
using fact::DataIngestionClient;
using vemo::test::HttpsTestServer;
using namespace std::chrono_literals;

const char kTag[] = "Vemo:DataIngestionClient";
const char kFailures[] = "DataIngestionClientUploadResponseErrorCount";
const std::string kMetadata =
    "{\"campaign_id\":\"c-9\",\"differential_privacy\":\"{\\\"cohort_size\\\":3}\"}";

std::string documentFor(const std::string& vector, const std::string& cohort) {
    return "{\"campaignId\":\"c-9\",\"maskedFederatedAnalyticsData\":{\"applicationId\":"
           "\"FactOrvuManager_c-9\",\"cohortId\":\"" +
           cohort + "\",\"cohortSize\":3,\"maskedFederatedAnalyticsVector\":\"" + vector +
           "\",\"vectorEncoding\":\"base64\",\"elementDatatypeEndianness\":false}}";
}

class UploadOverHttpsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.provision(1, "device-token");
        failuresBefore = fact::FactHeartbeatMetric::GetInstance().getCount(kFailures);
    }
    void pointAt(const std::string& baseUrl) {
        root.writeBuildProps({{DataIngestionClient::kUrlProperty, baseUrl},
                              {CurlHttpClient::kCaFileProperty, pki.caFile()}});
    }
    bool upload(const std::vector<int>& values, const std::string& cohort = "cohort-a") {
        return client.upload(values, kMetadata, "FactOrvuManager_c-9", cohort);
    }
    int32_t failuresCounted() {
        return fact::FactHeartbeatMetric::GetInstance().getCount(kFailures) - failuresBefore;
    }

    // Generous for a loaded sanitizer build; the stall case brings its own.
    static CurlHttpClient::Limits testLimits(std::chrono::milliseconds total = 30s) {
        CurlHttpClient::Limits limits;
        limits.connectTimeout = 10s;
        limits.totalTimeout = total;
        return limits;
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    hostlog::LogCapture logs;
    int32_t failuresBefore = 0;
    DataIngestionClient client{std::make_shared<fact::MapAuthenticator>(),
                               std::make_shared<CurlHttpClient>(testLimits())};
};

TEST_F(UploadOverHttpsTest, ServiceReceivesExactlyTheDocumentAndToken) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    pointAt(server.baseUrl());
    ASSERT_TRUE(upload({1, -1}));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].path, "/maskedFAVs");
    EXPECT_EQ(requests[0].body, documentFor("AQAAAP////8=", "cohort-a"));
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].header("x-qzt-access-token"), "device-token");
    EXPECT_EQ(failuresCounted(), 0);
}

TEST_F(UploadOverHttpsTest, Non200AnswersAreFailures) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    pointAt(server.baseUrl());
    for (const int status : {201, 500}) {
        logs.clear();
        server.respondWith(status, "{\"error\":\"no\"}");
        EXPECT_FALSE(upload({}));
        EXPECT_EQ(logs.messages(kTag),
                  (std::vector<std::string>{"upload:HTTP error code: " + std::to_string(status),
                                            "upload:HTTP error body: {\"error\":\"no\"}",
                                            "upload:Error in uploading masked FAVs"}));
    }
    EXPECT_EQ(failuresCounted(), 2);
    ASSERT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].body, documentFor("", "cohort-a"));
}

TEST_F(UploadOverHttpsTest, NoTokenNoRequest) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    pointAt(server.baseUrl());
    vemo::test::removeTree(root.path("/data/pellux"));
    EXPECT_FALSE(upload({1}));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "upload:Failed to get auth token: Error in getting MAP token"));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(UploadOverHttpsTest, ForeignCertificateIsRefusedAndNothingArrives) {
    HttpsTestServer server(pki.foreignServerCert(), pki.foreignServerKey());
    pointAt(server.baseUrl());
    EXPECT_FALSE(upload({1}));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "upload:Error in getting http response: curl request failed: SSL "
                              "peer certificate or SSH remote key was not OK"))
        << hostlog::describe(logs.entries());
    EXPECT_TRUE(server.requests().empty());
    EXPECT_EQ(failuresCounted(), 1);
}

TEST_F(UploadOverHttpsTest, StalledServiceEndsInAFailureAndFreesTheThread) {
    vemo::test::MisbehavingServer server(vemo::test::Misbehaviour::kStallAfterRequest,
                                         pki.serverCert(), pki.serverKey());
    pointAt(server.baseUrl());
    DataIngestionClient bounded(std::make_shared<fact::MapAuthenticator>(),
                                std::make_shared<CurlHttpClient>(testLimits(2s)));
    bounded.uploadAsync(std::vector<int>{1, 2, 3}, kMetadata, "FactOrvuManager_c-9", "stalled");
    ASSERT_TRUE(bounded.waitForUploads(60s));
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{
                  "upload:Error in getting http response: curl request failed: Timeout was "
                  "reached",
                  "upload:Error in uploading masked FAVs"}));
    EXPECT_EQ(failuresCounted(), 1);
}

TEST_F(UploadOverHttpsTest, ConcurrentAsyncUploadsAllArriveOnce) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    pointAt(server.baseUrl());
    constexpr int kUploads = 12;
    for (int k = 0; k < kUploads; ++k) {
        client.uploadAsync(std::vector<int>{k}, kMetadata, "FactOrvuManager_c-9",
                           "cohort-" + std::to_string(k));
    }
    ASSERT_TRUE(client.waitForUploads(120s));
    std::set<std::string> bodies;
    for (const auto& request : server.requests()) {
        bodies.insert(request.body);
    }
    ASSERT_EQ(server.requests().size(), static_cast<size_t>(kUploads));
    for (int k = 0; k < kUploads; ++k) {
        const std::vector<int32_t> values{k};
        EXPECT_EQ(bodies.count(documentFor(fact::encodeVector(values, false),
                                           "cohort-" + std::to_string(k))),
                  1u)
            << k;
    }
    EXPECT_EQ(logs.count(kTag, "upload:Successfully uploaded masked FAVs"),
              static_cast<size_t>(kUploads));
    EXPECT_EQ(failuresCounted(), 0);
}

}  // namespace
