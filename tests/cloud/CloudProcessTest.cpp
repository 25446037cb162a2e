// The real vemo_cloud program: killed with SIGKILL in the middle of a
// session, restarted on the same database, it keeps every acknowledged
// upload and completes the session; its report subcommand prints the sum.

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "ChildProcess.h"
#include "CloudTestDevice.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"

namespace vemo {
namespace test {
namespace {

const char* const kApp = "TestProducer_en-US_wakeword_quality";
const std::string kCampaigns = CLOUD_TEST_DATA_DIR "/campaigns";

class CloudProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::ofstream registry(dir.root() + "/devices");
        registry << "# token device\n";
        for (int i = 0; i < 5; ++i) {
            registry << "token-" << i << " device-" << i << "\n";
            fleet.emplace_back("token-" + std::to_string(i), kApp);
        }
    }

    // Starts the program and a client for it.
    void startCloud() {
        std::vector<std::string> args{
            "--listen",        "127.0.0.1:0", "--analyst-token", "secret", "--min-cohort", "5",
            "--cohort-window", "0",           "--neighbours",    "4"};
        args.insert(args.end(), {"--cert", pki.serverCert(), "--key", pki.serverKey(), "--db", db});
        args.insert(args.end(), {"--campaigns", kCampaigns, "--devices", dir.root() + "/devices"});
        cloud = std::make_unique<ChildProcess>(VEMO_CLOUD_BINARY, args,
                                               std::map<std::string, std::string>{});
        const std::string banner = "listening on https://127.0.0.1:";
        ASSERT_TRUE(cloud->waitForOutput(banner, std::chrono::seconds(30))) << cloud->output();
        const std::string out = cloud->output();
        const int port = std::stoi(out.substr(out.find(banner) + banner.size()));
        client = std::make_unique<CloudClient>(port, pki.caFile());
    }

    TempDeviceRoot dir;
    TestPki pki{dir.root()};
    const std::string db = dir.root() + "/cloud.db";
    std::vector<CloudTestDevice> fleet;
    std::unique_ptr<ChildProcess> cloud;
    std::unique_ptr<CloudClient> client;
};

std::vector<int32_t> inputOf(int device) {
    std::vector<int32_t> v(9, 0);
    v[static_cast<size_t>(device % 9)] = 100 + device;
    v[8] = 1;
    return v;
}

TEST_F(CloudProcessTest, KilledMidSessionLosesNothingAcknowledged) {
    ASSERT_NO_FATAL_FAILURE(startCloud());
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(fleet[i].requestParticipation(*client, inputOf(i)), 200);
    }
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(fleet[i].receiveDirective(*client));
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(fleet[i].upload(*client), 200);
    }
    cloud->signal(SIGKILL);
    ASSERT_EQ(cloud->waitForExit(std::chrono::seconds(10)), 128 + SIGKILL);

    ASSERT_NO_FATAL_FAILURE(startCloud());
    for (int i = 3; i < 5; ++i) {
        ASSERT_EQ(fleet[i].upload(*client), 200);
    }
    httplib::Headers analyst{{"Authorization", "Bearer secret"}};
    EXPECT_EQ(client->client.Get("/v1/campaigns/wakeword_quality/results")->status, 401);
    const auto results = client->client.Get("/v1/campaigns/wakeword_quality/results", analyst);
    ASSERT_TRUE(results && results->status == 200);
    rapidjson::Document doc;
    doc.Parse(results->body.c_str());
    const auto& app = doc["applications"][0];
    EXPECT_EQ(app["devices"].GetInt(), 5);
    const auto& outcome = app["items"][0]["bins"];
    for (int j = 0; j < 4; ++j) {  // the first item's elements: device j's input
        EXPECT_EQ(outcome[j]["noisy_count"].GetInt(), 100 + j) << j;
    }
    const auto report = client->client.Get("/v1/campaigns/wakeword_quality/report", analyst);
    ASSERT_TRUE(report && report->status == 200);
    EXPECT_NE(report->body.find("<svg"), std::string::npos);
    cloud->signal(SIGTERM);
    EXPECT_EQ(cloud->waitForExit(std::chrono::seconds(10)), 0);

    // The report goes to stdout, which output() does not collect.
    std::vector<std::string> command{"-c", "exec \"$@\" 1>&2", "sh"};
    command.insert(command.end(), ChildProcess::emulator().begin(), ChildProcess::emulator().end());
    command.insert(command.end(), {VEMO_CLOUD_BINARY, "report", "--db", db, "--campaigns",
                                   kCampaigns, "wakeword_quality"});
    ChildProcess reporter("/bin/sh", command, {});
    const std::string summary = std::string("application ") + kApp + ": 5 devices, 1 sessions";
    EXPECT_TRUE(reporter.waitForOutput(summary, std::chrono::seconds(30))) << reporter.output();
    EXPECT_TRUE(reporter.waitForOutput("far / slow", std::chrono::seconds(30)));
    EXPECT_EQ(reporter.waitForExit(std::chrono::seconds(30)), 0);
}

}  // namespace
}  // namespace test
}  // namespace vemo
