// The ingestion client with the product's HTTP client and authenticator,
// against a loopback HTTPS service.

#include <android/log.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "HttpsTestServer.h"
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

// Generous for a loaded sanitizer build; the stall case brings its own. No
// speed bound, so that a stalled answer is ended by the total bound alone.
std::shared_ptr<CurlHttpClient> curlClient(std::chrono::milliseconds total = 30s) {
    CurlHttpClient::Limits limits;
    limits.connectTimeout = 10s;
    limits.lowSpeedBytesPerSecond = 0;
    limits.totalTimeout = total;
    return std::make_shared<CurlHttpClient>(limits);
}

class UploadOverHttpsTest : public ::testing::Test {
  protected:
    void SetUp() override { root.provision(1, "device-token"); }
    void pointAt(const std::string& baseUrl) {
        root.writeBuildProps({{DataIngestionClient::kUrlProperty, baseUrl},
                              {CurlHttpClient::kCaFileProperty, pki.caFile()}});
    }
    int32_t failuresCounted() {
        return fact::FactHeartbeatMetric::GetInstance().getCount(kFailures) - failuresBefore;
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    hostlog::LogCapture logs;
    int32_t failuresBefore = fact::FactHeartbeatMetric::GetInstance().getCount(kFailures);
    DataIngestionClient client{std::make_shared<fact::MapAuthenticator>(), curlClient()};
    HttpsTestServer server{pki.serverCert(), pki.serverKey()};
};

TEST_F(UploadOverHttpsTest, ServiceGetsTheExactDocumentAndOnlyA200IsSuccess) {
    pointAt(server.baseUrl());
    const struct {
        int status;
        std::vector<std::string> lines;
    } rows[] = {
        {200, {"upload:Successfully uploaded masked FAVs"}},
        {201,
         {"upload:HTTP error code: 201", "upload:HTTP error body: {\"error\":\"no\"}",
          "upload:Error in uploading masked FAVs"}},
    };
    int32_t failures = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        const std::string body = row.status == 200 ? "{\"ok\":true}" : "{\"error\":\"no\"}";
        server.respondWith(row.status, body);
        logs.clear();
        EXPECT_EQ(
            client.upload(std::vector<int>{1, -1}, kMetadata, "FactOrvuManager_c-9", "cohort-a"),
            row.status == 200);
        EXPECT_EQ(logs.messages(kTag), row.lines);
        const std::string url = server.baseUrl() + "/maskedFAVs";
        EXPECT_EQ(
            logs.messages("Vemo:CurlHttpClient"),
            (std::vector<std::string>{"sendRequest:Sending POST request to " + url,
                                      "operator():Response code: " + std::to_string(row.status),
                                      "operator():Response body: " + body}));
        failures += row.status == 200 ? 0 : 1;
        EXPECT_EQ(failuresCounted(), failures);
    }
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].path, "/maskedFAVs");
    EXPECT_EQ(requests[0].body, documentFor("AQAAAP////8=", "cohort-a"));
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].header("x-qzt-access-token"), "device-token");
}

TEST_F(UploadOverHttpsTest, NoTokenNoRequest) {
    pointAt(server.baseUrl());
    vemo::test::removeTree(root.path("/data/pellux"));
    const int32_t before =
        fact::FactHeartbeatMetric::GetInstance().getCount("DataIngestionClientMapTokenErrorCount");
    EXPECT_FALSE(client.upload(std::vector<int>{1}, kMetadata, "FactOrvuManager_c-9", "c"));
    EXPECT_EQ(
        logs.messages(kTag),
        std::vector<std::string>{"upload:Failed to get auth token: Error in getting MAP token"});
    EXPECT_EQ(logs.messages("Vemo:MapAuthenticator"),
              std::vector<std::string>{"getAuthToken:Error in getting MAP token"});
    EXPECT_EQ(
        fact::FactHeartbeatMetric::GetInstance().getCount("DataIngestionClientMapTokenErrorCount"),
        before + 1);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(UploadOverHttpsTest, StalledServiceEndsInAFailureAndFreesTheThread) {
    pointAt(server.baseUrl());
    server.holdAnswers();
    DataIngestionClient bounded(std::make_shared<fact::MapAuthenticator>(), curlClient(2s));
    bounded.uploadAsync(std::vector<int>{1, 2, 3}, kMetadata, "FactOrvuManager_c-9", "stalled");
    ASSERT_TRUE(bounded.waitForUploads(60s));
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{
                  "upload:Error in getting http response: curl request failed: Timeout was "
                  "reached",
                  "upload:Error in uploading masked FAVs"}));
    EXPECT_EQ(failuresCounted(), 1);
    // The HTTP client logs the failure once, where it is detected.
    EXPECT_EQ(logs.count("Vemo:CurlHttpClient", "curl request failed"), 1u);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:CurlHttpClient",
                              "operator():curl request failed: Timeout was reached"));
}

// Nothing reaches a service that is not verified as the one asked for.
TEST_F(UploadOverHttpsTest, VerificationFailsClosed) {
    HttpsTestServer foreign(pki.foreignServerCert(), pki.foreignServerKey());
    const char notOk[] = "SSL peer certificate or SSH remote key was not OK";
    const struct {
        std::string baseUrl;
        std::string caFile;  // "": no property, only libcurl's default store
        const char* failure;
    } rows[] = {
        {foreign.baseUrl(), pki.caFile(), notOk},  // a certificate the CA did not sign
        {server.baseUrl(), "", notOk},
        {server.baseUrl(), root.root() + "/missing.pem",
         "Problem with the SSL CA cert (path? access rights?)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.caFile);
        std::map<std::string, std::string> props{{DataIngestionClient::kUrlProperty, row.baseUrl}};
        if (!row.caFile.empty()) {
            props[CurlHttpClient::kCaFileProperty] = row.caFile;
        }
        root.writeBuildProps(props);
        logs.clear();
        EXPECT_FALSE(client.upload(std::vector<int>{1}, kMetadata, "FactOrvuManager_c-9", "c"));
        EXPECT_TRUE(logs.contains(
            ANDROID_LOG_ERROR, kTag,
            std::string("upload:Error in getting http response: curl request failed: ") +
                row.failure))
            << hostlog::describe(logs.entries());
    }
    EXPECT_TRUE(foreign.requests().empty());
    EXPECT_TRUE(server.requests().empty());
}

// Uploads run on threads of their own: waiting sees them while they run,
// and each holds its own copy of the client it came from.
TEST_F(UploadOverHttpsTest, ConcurrentUploadsOutliveTheirClientAndAllArriveOnce) {
    pointAt(server.baseUrl());
    server.holdAnswers();
    constexpr int kUploads = 12;
    std::multiset<std::string> expected;
    {
        DataIngestionClient shortLived(std::make_shared<fact::MapAuthenticator>(), curlClient());
        for (int k = 0; k < kUploads; ++k) {
            const std::vector<int> values{k};
            const std::string cohort = "cohort-" + std::to_string(k);
            shortLived.uploadAsync(values, kMetadata, "FactOrvuManager_c-9", cohort);
            expected.insert(documentFor(fact::encodeVector(values, false), cohort));
        }
        EXPECT_FALSE(shortLived.waitForUploads(50ms));
        EXPECT_EQ(shortLived.uploadsInFlight(), static_cast<size_t>(kUploads));
        // A copy shares the count of uploads in flight.
        const DataIngestionClient copy = shortLived;
        EXPECT_EQ(copy.uploadsInFlight(), static_cast<size_t>(kUploads));
        client = copy;
    }
    server.release();
    ASSERT_TRUE(client.waitForUploads(120s));
    EXPECT_EQ(client.uploadsInFlight(), 0u);
    std::multiset<std::string> bodies;
    for (const auto& request : server.requests()) {
        bodies.insert(request.body);
    }
    EXPECT_EQ(bodies, expected);
    EXPECT_EQ(logs.count(kTag, "upload:Successfully uploaded masked FAVs"),
              static_cast<size_t>(kUploads));
    EXPECT_EQ(failuresCounted(), 0);
}

}  // namespace
