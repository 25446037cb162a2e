#include "fact/upload/CurlHttpClient.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

#include "HttpsTestServer.h"
#include "MisbehavingServer.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::CurlHttpClient;
using fact::Response;
using vemo::test::HttpsTestServer;
using vemo::test::MisbehavingServer;
using vemo::test::Misbehaviour;
using namespace std::chrono_literals;

const char kTag[] = "Vemo:CurlHttpClient";
const std::unordered_map<std::string, std::string> kHeaders = {{"Content-Type", "application/json"},
                                                               {"x-qzt-access-token", "tok-1"}};

// A short speed bound so that stalls end quickly; connect and total bounds
// generous enough for a loaded sanitizer build.
CurlHttpClient::Limits quickLimits(std::chrono::milliseconds connectTimeout = 10s) {
    CurlHttpClient::Limits limits;
    limits.connectTimeout = connectTimeout;
    limits.lowSpeedBytesPerSecond = 1;
    limits.lowSpeedTime = 1s;
    limits.totalTimeout = 30s;
    return limits;
}

// A loopback port with nothing listening on it.
int closedPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

class CurlHttpClientTest : public ::testing::Test {
  protected:
    void SetUp() override { trustTestCa(); }
    void trustTestCa() { root.writeBuildProps({{CurlHttpClient::kCaFileProperty, pki.caFile()}}); }

    // The failure text a request to `url` ends with.
    std::string failureOf(const std::string& url) { return failureOf(client, url); }
    static std::string failureOf(CurlHttpClient& client, const std::string& url) {
        try {
            client.sendRequest(url, kHeaders, "{}").get();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "no failure";
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    hostlog::LogCapture logs;
    CurlHttpClient client{quickLimits()};
};

TEST_F(CurlHttpClientTest, PostsTheBodyAndHeadersAndReturnsTheAnswer) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    server.respondWith(200, "{\"ok\":true}");
    const std::string body = "{\"campaignId\":\"c\",\"v\":[1,2]}";
    logs.clear();

    const Response response =
        client.sendRequest(server.baseUrl() + "/maskedFAVs", kHeaders, body).get();

    EXPECT_EQ(response.statusCode, 200);
    EXPECT_EQ(response.body, "{\"ok\":true}");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].path, "/maskedFAVs");
    EXPECT_EQ(requests[0].body, body);
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].header("x-qzt-access-token"), "tok-1");
    const std::string url = server.baseUrl() + "/maskedFAVs";
    EXPECT_EQ(logs.messages(kTag),
              (std::vector<std::string>{"sendRequest:Sending POST request to " + url,
                                        "operator():Response code: 200",
                                        "operator():Response body: {\"ok\":true}"}))
        << hostlog::describe(logs.entries());
}

TEST_F(CurlHttpClientTest, ErrorStatusesComeBackWithTheirBodyWithoutException) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    for (const int status : {201, 404, 500, 503}) {
        server.respondWith(status, "failed " + std::to_string(status));
        const Response response = client.sendRequest(server.baseUrl() + "/x", kHeaders, "{}").get();
        EXPECT_EQ(response.statusCode, status);
        EXPECT_EQ(response.body, "failed " + std::to_string(status));
    }
}

TEST_F(CurlHttpClientTest, WithoutHeadersOnlyLibcurlsOwnAreSent) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    client.sendRequest(server.baseUrl() + "/x", {}, "a=b").get();
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(requests[0].header("x-qzt-access-token"), "");
}

TEST_F(CurlHttpClientTest, NothingIsSentUntilTheFutureIsWaitedOn) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    {
        auto dropped = client.sendRequest(server.baseUrl() + "/dropped", kHeaders, "{}");
        auto kept = client.sendRequest(server.baseUrl() + "/kept", kHeaders, "{}");
        EXPECT_TRUE(server.requests().empty());
        kept.get();
    }
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].path, "/kept");
}

TEST_F(CurlHttpClientTest, UnreachablePortThrowsFromGetAndLogsOnce) {
    const std::string url = "https://127.0.0.1:" + std::to_string(closedPort()) + "/maskedFAVs";
    EXPECT_EQ(failureOf(url), "curl request failed: Couldn't connect to server");
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "operator():curl request failed: Couldn't connect to server"));
    EXPECT_EQ(logs.count(kTag, "curl request failed"), 1u);
}

TEST_F(CurlHttpClientTest, PeerVerificationRefusesServersTheCaDidNotSign) {
    HttpsTestServer foreign(pki.foreignServerCert(), pki.foreignServerKey());
    HttpsTestServer trusted(pki.serverCert(), pki.serverKey());
    EXPECT_EQ(failureOf(foreign.baseUrl() + "/maskedFAVs"),
              "curl request failed: SSL peer certificate or SSH remote key was not OK");
    // Without the property only libcurl's default store is trusted.
    root.writeBuildProps({});
    EXPECT_EQ(failureOf(trusted.baseUrl() + "/maskedFAVs"),
              "curl request failed: SSL peer certificate or SSH remote key was not OK");
    // A CA file that cannot be read fails closed.
    root.writeBuildProps({{CurlHttpClient::kCaFileProperty, root.root() + "/missing.pem"}});
    EXPECT_EQ(failureOf(trusted.baseUrl() + "/maskedFAVs"),
              "curl request failed: Problem with the SSL CA cert (path? access rights?)");
    EXPECT_TRUE(foreign.requests().empty());
    EXPECT_TRUE(trusted.requests().empty());
}

TEST_F(CurlHttpClientTest, PlainHttpIsRefusedBeforeAnythingIsSent) {
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    EXPECT_EQ(failureOf("http://127.0.0.1:" + std::to_string(server.port()) + "/maskedFAVs"),
              "curl request failed: Unsupported protocol");
    EXPECT_TRUE(server.requests().empty());
}

struct MisbehaviourCase {
    const char* name;
    Misbehaviour behaviour;
    const char* failure;
    std::chrono::milliseconds connectTimeout = 10s;
};
void PrintTo(const MisbehaviourCase& c, std::ostream* os) {
    *os << c.name;
}

class CurlMisbehavingPeerTest : public CurlHttpClientTest,
                                public ::testing::WithParamInterface<MisbehaviourCase> {};

TEST_P(CurlMisbehavingPeerTest, EndsInAnErrorNeverAHang) {
    MisbehavingServer server(GetParam().behaviour, pki.serverCert(), pki.serverKey());
    CurlHttpClient peerClient(quickLimits(GetParam().connectTimeout));
    EXPECT_EQ(failureOf(peerClient, server.baseUrl() + "/maskedFAVs"),
              std::string("curl request failed: ") + GetParam().failure);
}

INSTANTIATE_TEST_SUITE_P(
    Peers, CurlMisbehavingPeerTest,
    ::testing::Values(
        MisbehaviourCase{"NeverAccept", Misbehaviour::kNeverAccept, "Timeout was reached", 1s},
        MisbehaviourCase{"CloseAtOnce", Misbehaviour::kCloseAtOnce, "SSL connect error"},
        MisbehaviourCase{"PlainGarbage", Misbehaviour::kPlainGarbage, "SSL connect error"},
        MisbehaviourCase{"GarbageReply", Misbehaviour::kGarbageReply, "Unsupported protocol"},
        MisbehaviourCase{"NoReply", Misbehaviour::kNoReply,
                         "Server returned nothing (no headers, no data)"},
        MisbehaviourCase{"TruncatedBody", Misbehaviour::kTruncatedBody,
                         "Transferred a partial file"},
        MisbehaviourCase{"StallAfterRequest", Misbehaviour::kStallAfterRequest,
                         "Timeout was reached"}),
    [](const ::testing::TestParamInfo<MisbehaviourCase>& info) { return info.param.name; });

TEST_F(CurlHttpClientTest, TotalTimeoutBoundsAStalledAnswer) {
    CurlHttpClient::Limits limits;
    limits.connectTimeout = 0ms;
    limits.lowSpeedBytesPerSecond = 0;
    limits.totalTimeout = 3s;
    CurlHttpClient bounded(limits);
    HttpsTestServer server(pki.serverCert(), pki.serverKey());
    server.holdAnswers();
    auto future = bounded.sendRequest(server.baseUrl() + "/maskedFAVs", kHeaders, "{}");
    EXPECT_THROW(
        {
            try {
                future.get();
            } catch (const std::runtime_error& e) {
                EXPECT_STREQ(e.what(), "curl request failed: Timeout was reached");
                throw;
            }
        },
        std::runtime_error);
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST(CurlWriteCallback, AppendsAndReportsAllBytes) {
    std::string sink = "ab";
    char data[] = "cdef";
    EXPECT_EQ(CurlHttpClient::WriteCallback(data, 1, 4, &sink), 4u);
    EXPECT_EQ(CurlHttpClient::WriteCallback(data, 2, 1, &sink), 2u);
    EXPECT_EQ(sink, "abcdefcd");
}

}  // namespace
