#include "CloudServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ChildProcess.h"
#include "CloudTestDevice.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"

namespace vemo {
namespace cloud {
namespace {

using test::CloudTestDevice;
using test::eventBody;

const char* const kApp = "TestProducer_en-US_wakeword_quality";
constexpr size_t kLength = 9;  // the campaign's vector, without the checksum

// A real cloud on loopback, in process, with a fresh database and test CA.
// Its clock stands still until a test moves it, so cohort windows and
// deadlines pass exactly when the test says, however slow the machine.
class CloudServerTest : public ::testing::Test {
  protected:
    void start(ControllerConfig config) {
        config.tickMs = 50;
        auto clock = [this] { return now.load(); };
        controller = std::make_unique<SessionController>(store, config, clock);
        ingestion = std::make_unique<Ingestion>(store, *controller, catalog, clock);
        ServerConfig serverConfig;
        serverConfig.port = 0;
        serverConfig.certFile = pki.serverCert();
        serverConfig.keyFile = pki.serverKey();
        serverConfig.pollMs = 5000;
        serverConfig.threads = 16;
        server =
            std::make_unique<CloudServer>(serverConfig, store, *controller, *ingestion, catalog);
        std::string error;
        ASSERT_TRUE(server->bind(error)) << error;
        controller->start();
        thread = std::thread([this] { server->run(); });
        cloud = std::make_unique<test::CloudClient>(server->port(), pki.caFile());
    }
    void TearDown() override {
        if (server) {
            server->stop();
            thread.join();
            controller->stop();
        }
    }

    std::vector<CloudTestDevice> devices(size_t count, const std::string& prefix = "d",
                                         const std::string& app = kApp) {
        std::vector<std::pair<std::string, std::string>> registry;
        std::vector<CloudTestDevice> out;
        for (size_t i = 0; i < count; ++i) {
            const std::string token = prefix + "-token-" + std::to_string(i);
            registry.emplace_back(token, prefix + std::to_string(i));
            out.emplace_back(token, app);
        }
        store.registerDevices(registry);
        return out;
    }

    // Waits until the health counts satisfy `done`.
    bool waitFor(const std::function<bool(const HealthCounts&)>& done) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < until) {
            if (done(store.health())) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    std::atomic<int64_t> now{1000000};
    test::TempDeviceRoot dir;
    test::TestPki pki{dir.root()};
    CloudStore store{dir.root() + "/cloud.db"};
    CampaignCatalog catalog{CLOUD_TEST_DATA_DIR "/campaigns"};
    std::unique_ptr<SessionController> controller;
    std::unique_ptr<Ingestion> ingestion;
    std::unique_ptr<CloudServer> server;
    std::unique_ptr<test::CloudClient> cloud;
    std::thread thread;
};

std::vector<int32_t> inputOf(size_t device) {
    std::vector<int32_t> v(kLength);
    for (size_t j = 0; j < kLength; ++j) {
        v[j] = static_cast<int32_t>((device * 7 + j * 3) % 11);
    }
    return v;
}

// Sessions of 5 to 7, so that each application's 5 requests wait out the
// window (full sessions forming at once are the concurrent fleet's).
TEST_F(CloudServerTest, IncompleteOrTamperedSessionsPublishNothing) {
    start({5, 7, 1000, 60000, 4});
    auto silent = devices(5, "silent");
    auto tampering = devices(5, "tamper", "TestProducer_de-DE_wakeword_quality");
    for (size_t i = 0; i < 5; ++i) {
        ASSERT_EQ(silent[i].requestParticipation(*cloud, inputOf(i)), 200);
        ASSERT_EQ(tampering[i].requestParticipation(*cloud, inputOf(i)), 200);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // four ticks
    EXPECT_EQ(store.health().requestsWaiting, 10);
    now += 1000;
    for (size_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(silent[i].receiveDirective(*cloud));
        ASSERT_TRUE(tampering[i].receiveDirective(*cloud));
        if (i > 0) {
            ASSERT_EQ(silent[i].upload(*cloud), 200);
        }
        ASSERT_EQ(tampering[i].upload(*cloud, i == 2 ? 1 : 0), 200);
    }
    EXPECT_EQ(store.health().sessionsFailed, 1);  // the checksum, at once
    now += 60000;
    ASSERT_TRUE(waitFor([](const HealthCounts& h) { return h.sessionsFailed == 2; }));
    EXPECT_EQ(store.session(tampering[0].cohortId())->reason, SessionController::kChecksumReason);
    EXPECT_NE(store.session(silent[1].cohortId())->reason.find("deadline"), std::string::npos);
    EXPECT_TRUE(store.totals("wakeword_quality").empty());
    // The silent member is too late now.
    ASSERT_TRUE(silent[0].receiveDirective(*cloud));
    EXPECT_EQ(silent[0].upload(*cloud), 409);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// Every refusal has its status and leaves the database as it was.
TEST_F(CloudServerTest, BadEventsAndUploadsAreRefusedWithNothingStored) {
    start({5, 5, 0, 20000, 4});
    auto fleet = devices(5);
    auto outsider = devices(1, "outsider");
    for (size_t i = 0; i < fleet.size(); ++i) {
        ASSERT_EQ(fleet[i].requestParticipation(*cloud, inputOf(i)), 200);
    }
    for (auto& device : fleet) {
        ASSERT_TRUE(device.receiveDirective(*cloud));
    }
    const std::string token = fleet[0].token();
    const std::string good = fleet[0].uploadDocument();
    const std::string vectorKey = "\"maskedFederatedAnalyticsVector\":\"";
    const std::string request = eventBody("RA.Tolmo.SecureAggregationSessionController",
                                          "ParticipationRequest", "m-x", "not a request");
    const struct {
        const char* what;
        const char* path;
        std::string token;
        std::string body;
        int status;
    } rows[] = {
        {"event without token", "/v20160207/event", "", request, 401},
        {"event with unknown token", "/v20160207/event", "nobody", request, 401},
        {"event not JSON", "/v20160207/event", token, "{\"event\":", 400},
        {"event without header", "/v20160207/events", token, R"({"event":{"payload":""}})", 400},
        {"participation request not a request", "/v20160207/events", token, request, 400},
        {"event over 1 MiB", "/v20160207/event", token,
         eventBody("ns", "n", "m-big", std::string(1 << 20, 'x')), 413},
        {"upload without token", "/maskedFAVs", "", good, 401},
        {"upload not JSON", "/maskedFAVs", token, good.substr(0, good.size() / 2), 400},
        {"upload not base64", "/maskedFAVs", token, replaced(good, vectorKey, vectorKey + "*"),
         400},
        {"upload of the wrong length", "/maskedFAVs", token,
         replaced(good, vectorKey, vectorKey + "AAAA"), 400},
        {"upload for an unknown session", "/maskedFAVs", token,
         replaced(good, fleet[0].cohortId(), "no-such-session"), 404},
        {"upload by a device outside the session", "/maskedFAVs", outsider[0].token(), good, 404},
        {"upload for another application", "/maskedFAVs", token, replaced(good, kApp, "other_app"),
         400},
    };
    const HealthCounts before = store.health();
    for (const auto& row : rows) {
        const auto result = cloud->post(row.path, row.token, row.body);
        ASSERT_TRUE(result) << row.what;
        EXPECT_EQ(result->status, row.status) << row.what << ": " << result->body;
    }
    const HealthCounts after = store.health();
    EXPECT_EQ(after.uploads, before.uploads);
    EXPECT_EQ(after.requestsWaiting, before.requestsWaiting);
    EXPECT_EQ(after.sessionsOpen, 1);

    // Replays: an identical upload is acknowledged again, a different one
    // refused; a repeated message id is a duplicate.
    EXPECT_EQ(cloud->post("/maskedFAVs", token, good)->status, 200);
    EXPECT_EQ(cloud->post("/maskedFAVs", token, good)->status, 200);
    EXPECT_EQ(cloud->post("/maskedFAVs", token, fleet[0].uploadDocument(1))->status, 409);
    const std::string hello = eventBody("Tolmo.Discovery", "AddOrUpdateReport", "m-1", "{}");
    EXPECT_EQ(cloud->post("/v20160207/event", token, hello)->status, 200);
    EXPECT_EQ(cloud->post("/v20160207/event", token, hello)->status, 409);
    EXPECT_EQ(store.health().uploads, before.uploads + 1);
    EXPECT_EQ(cloud->get("/v20160207/directives?after=0", "nobody")->status, 401);
    EXPECT_EQ(cloud->get("/v1/campaigns/wakeword_quality", "nobody")->status, 401);
    EXPECT_EQ(cloud->get("/v1/campaigns/wakeword_quality", token)->status, 200);
    EXPECT_EQ(cloud->get("/v1/campaigns/no_such_campaign/results", "")->status, 404);
}

TEST_F(CloudServerTest, ConcurrentFleetIsCountedOnce) {
    if (!test::ChildProcess::emulator().empty()) {
        GTEST_SKIP() << "200 TLS clients are too slow under an emulator";
    }
    start({5, 50, 1000, 60000, 6});  // sessions of exactly 50
    auto fleet = devices(200);
    std::atomic<int> acknowledged{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < fleet.size(); ++i) {
        threads.emplace_back([&, i] {
            test::CloudClient client(server->port(), pki.caFile());
            if (fleet[i].requestParticipation(client, inputOf(i)) == 200 &&
                fleet[i].receiveDirective(client) && fleet[i].upload(client) == 200) {
                ++acknowledged;
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(acknowledged, 200);
    ASSERT_TRUE(waitFor([](const HealthCounts& h) {
        return h.uploads == 200 && h.sessionsOpen == 0 && h.requestsWaiting == 0;
    }));
    EXPECT_EQ(store.health().sessionsFailed, 0);
    const auto totals = store.totals("wakeword_quality");
    ASSERT_EQ(totals.size(), 1u);
    EXPECT_EQ(totals[0].uploads, 200);
    EXPECT_EQ(totals[0].devices, 200);
    std::vector<uint32_t> expected(kLength, 0);
    for (size_t i = 0; i < fleet.size(); ++i) {
        for (size_t j = 0; j < kLength; ++j) {
            expected[j] += static_cast<uint32_t>(inputOf(i)[j]);
        }
    }
    EXPECT_EQ(totals[0].sum, expected);
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
