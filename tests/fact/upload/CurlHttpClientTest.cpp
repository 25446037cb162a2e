#include "fact/upload/CurlHttpClient.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "HttpsTestServer.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "hostlog/LogCapture.h"

namespace {

using fact::CurlHttpClient;
using vemo::test::HttpsTestServer;

// The failure text a request to `url` ends with.
std::string failureOf(CurlHttpClient& client, const std::string& url) {
    try {
        client.sendRequest(url, {{"x-qzt-access-token", "tok-1"}}, "{}").get();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no failure";
}

class CurlHttpClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.writeBuildProps({{CurlHttpClient::kCaFileProperty, pki.caFile()}});
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    hostlog::LogCapture logs;
    CurlHttpClient client;
};

TEST_F(CurlHttpClientTest, UnreachablePortThrowsFromGetAndLogsOnce) {
    // A loopback port with nothing listening on it.
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    const std::string hostPort = "127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    EXPECT_EQ(failureOf(client, "https://" + hostPort),
              "curl request failed: Couldn't connect to server");
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:CurlHttpClient",
                              "operator():curl request failed: Couldn't connect to server"));
    EXPECT_EQ(logs.count("Vemo:CurlHttpClient", "curl request failed"), 1u);
}

// Nothing reaches a server that is not verified as the one asked for.
TEST_F(CurlHttpClientTest, VerificationFailsClosed) {
    HttpsTestServer foreign(pki.foreignServerCert(), pki.foreignServerKey());
    HttpsTestServer trusted(pki.serverCert(), pki.serverKey());
    const std::string notOk =
        "curl request failed: SSL peer certificate or SSH remote key was not OK";
    // A server certificate the CA did not sign.
    EXPECT_EQ(failureOf(client, foreign.baseUrl() + "/maskedFAVs"), notOk);
    // Without the property only libcurl's default store is trusted.
    root.writeBuildProps({});
    EXPECT_EQ(failureOf(client, trusted.baseUrl() + "/maskedFAVs"), notOk);
    // A CA file that cannot be read.
    root.writeBuildProps({{CurlHttpClient::kCaFileProperty, root.root() + "/missing.pem"}});
    EXPECT_EQ(failureOf(client, trusted.baseUrl() + "/maskedFAVs"),
              "curl request failed: Problem with the SSL CA cert (path? access rights?)");
    EXPECT_TRUE(foreign.requests().empty());
    EXPECT_TRUE(trusted.requests().empty());
}

}  // namespace
