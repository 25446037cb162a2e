// The wired daemon as a process: a scripted HTTPS cloud, vemoctl as the
// binder client, the real analytics library, core and upload client.

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <signal.h>

#include <regex>
#include <sstream>

#include "ChildProcess.h"
#include "HttpsTestServer.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "WireFormat.h"
#include "secagg/Checksum.h"
#include "secagg/KeyPair.h"
#include "secagg/MaskDirective.h"
#include "secagg/Masker.h"
#include "secagg/ParticipationRequest.h"
#include "secagg/Transcript.h"

namespace {

using namespace std::chrono_literals;
using vemo::test::ChildProcess;
using vemo::test::RecordedRequest;

const char kSession[] = "RA.Tolmo.SecureAggregationSessionController";
const char kAppId[] = "TelemetryDataProducer_A1RABVCI_hc-1,hc-2_tdp-e2e";
const char kMetadata[] =
    R"({"differential_privacy":"{\"cohort_size\": 0}","campaign_id":"tdp-e2e"})";

// The event document's header member and payload text.
struct PostedEvent {
    std::string nameSpace, name, payloadVersion, payload;
};
PostedEvent parseEvent(const RecordedRequest& request) {
    rapidjson::Document doc;
    doc.Parse(request.body.c_str());
    const auto& header = doc["event"]["header"];
    return {header["namespace"].GetString(), header["name"].GetString(),
            header["payloadVersion"].GetString(), doc["event"]["payload"].GetString()};
}

class WiredDaemonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.writeBuildProps({{"ro.serialno", "SERIAL1"},
                              {"ro.product.config.type", "A1RABVCI"},
                              {"ro.product.locale", "en-GB"}});
        root.writeFile("/data/property/persist.prop",
                       "persist.vemo.cloud.url=" + cloud.baseUrl() +
                           "\npersist.vemo.cloud.cafile=" + pki.caFile() +
                           "\npersist.vemo.ingestion.url=" + cloud.baseUrl() +
                           "\npersist.vemo.ingestion.cafile=" + pki.caFile() + "\n");
        root.provision(1, "device-token");
        root.writeFile("/data/vemo/campaign.json",
                       vemo::test::readHostFile(std::string(TDP_TEST_DATA_DIR) + "/campaign.json"));
    }
    void TearDown() override {
        if (daemon) {
            daemon->signal(SIGTERM);
            EXPECT_EQ(daemon->waitForExit(10s), 0) << daemon->output();
        }
    }
    void startDaemon() {
        daemon =
            std::make_unique<ChildProcess>(VEMO_DAEMON_PATH, std::vector<std::string>{}, env());
        ASSERT_TRUE(daemon->waitForOutput(
            "start:addedBinderService, descriptor=vemo.ipc.IFlgrService", 30s))
            << daemon->output();
    }
    // vemoctl's exit code; its stdout in `out`.
    int ctl(const std::vector<std::string>& args, std::string* out = nullptr) {
        std::vector<std::string> shell{"-c", "out=$1; shift; exec \"$@\" >\"$out\"", "sh",
                                       root.path("/vemoctl.out")};
        const auto& emulator = ChildProcess::emulator();
        shell.insert(shell.end(), emulator.begin(), emulator.end());
        shell.push_back(VEMOCTL_PATH);
        shell.insert(shell.end(), args.begin(), args.end());
        ChildProcess process("/bin/sh", shell, env());
        const int code = process.waitForExit(60s);
        if (out != nullptr) {
            *out = root.readFile("/vemoctl.out");
        }
        return code;
    }
    // The trace's first event sets the keys; its second changes the volume,
    // which makes one vector.
    void sendVolumeChange() {
        std::istringstream trace(
            vemo::test::readHostFile(std::string(TDP_TEST_DATA_DIR) + "/ecs_trace.jsonl"));
        std::string event;
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(std::getline(trace, event));
            root.writeFile("/ecs.json", event);
            EXPECT_EQ(ctl({"fact", "UnifiedSensingService", "@" + root.path("/ecs.json")}), 0);
        }
    }
    std::map<std::string, std::string> env() const { return {{"VEMO_DEVICE_ROOT", root.root()}}; }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    vemo::test::HttpsTestServer cloud{pki.serverCert(), pki.serverKey()};
    std::unique_ptr<ChildProcess> daemon;
};

TEST_F(WiredDaemonTest, AnEventBecomesAMaskedUploadWhoseSumTheCloudCanCheck) {
    startDaemon();
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/event", 1, 30s));
    const RecordedRequest announcement = cloud.requestsTo("/v20160207/event")[0];
    const PostedEvent capability = parseEvent(announcement);
    EXPECT_EQ(capability.nameSpace, "Tolmo.Discovery");
    EXPECT_EQ(capability.name, "AddOrUpdateReport");
    EXPECT_EQ(capability.payloadVersion, "1.0");
    EXPECT_EQ(capability.payload,
              "{\"endpoints\":[{\"capabilities\":[{\"type\":\"TolmoInterface\",\"interface\":"
              "\"Tolmo.SecureAggregationSessionController\",\"version\":\"1.0\"}]}]}");
    EXPECT_EQ(announcement.header("x-qzt-access-token"), "device-token");

    ASSERT_EQ(ctl({"fact", "FactOrvuManager", "/data/vemo/campaign.json"}), 0);
    EXPECT_EQ(root.readFile("/data/vemo//config"), "/data/vemo/campaign.json");
    sendVolumeChange();

    ASSERT_TRUE(cloud.waitForRequests("/v20160207/events", 1, 30s)) << daemon->output();
    const PostedEvent posted = parseEvent(cloud.requestsTo("/v20160207/events")[0]);
    EXPECT_EQ(posted.nameSpace, kSession);
    EXPECT_EQ(posted.name, "ParticipationRequest");
    EXPECT_EQ(posted.payloadVersion, "1");
    secagg::ParticipationRequest request;
    std::string error;
    ASSERT_TRUE(secagg::parseParticipationRequest(posted.payload, request, error)) << error;
    EXPECT_EQ(request.kind, secagg::Kind::Integral);
    EXPECT_EQ(request.name, kAppId);
    EXPECT_EQ(request.secondName, kMetadata);
    // One segment per data item, "(none)" and its bins: 7 + 5 + 4 + 4; the checksum.
    ASSERT_EQ(request.length, 21u);

    // Directives that are not for the core are turned away before it.
    cloud.queueDirective(kSession, "UploadMaskedData", "not json");
    cloud.queueDirective(kSession, "UploadMaskedData", "{\"payload\":[]}");
    cloud.queueDirective(kSession, "UploadMaskedData", "[1]");
    const secagg::KeyPair neighbour = secagg::KeyPair::generate();
    secagg::MaskDirective directive;
    directive.requestId = request.requestId;
    directive.sessionId.fill(7);
    directive.name = request.name;
    directive.secondName = request.secondName;
    directive.length = request.length;
    directive.cohortId = "cohort-1";
    directive.neighbours = {neighbour.publicKey()};
    cloud.queueDirective(kSession, "UploadMaskedData",
                         "{\"payload\":" + secagg::writeMaskDirective(directive) + "}");

    ASSERT_TRUE(cloud.waitForRequests("/maskedFAVs", 1, 30s)) << daemon->output();
    EXPECT_TRUE(
        daemon->waitForOutput("operator():VEMO directive can not been parsed: not json", 1s));
    EXPECT_TRUE(daemon->waitForOutput(
        "operator():Payload does not exist in the directive or is not an object: "
        "{\"payload\":[]}",
        1s));
    EXPECT_TRUE(daemon->waitForOutput(
        "operator():Payload does not exist in the directive or is not an object: [1]", 1s));
    const RecordedRequest upload = cloud.requestsTo("/maskedFAVs")[0];
    EXPECT_EQ(upload.header("x-qzt-access-token"), "device-token");
    const std::regex document(
        R"(\{"campaignId":"tdp-e2e","maskedFederatedAnalyticsData":\{"applicationId":")" +
        std::string(kAppId) +
        R"re(","cohortId":"cohort-1","cohortSize":0,"maskedFederatedAnalyticsVector":")re"
        R"re(([A-Za-z0-9+/=]+)","vectorEncoding":"base64","elementDatatypeEndianness":false\}\})re");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(upload.body, match, document)) << upload.body;

    std::vector<uint32_t> words;
    ASSERT_TRUE(vemo::cloud::WireFormat::decodeVector(match[1], false, 21, words, error)) << error;
    secagg::Masker masker;
    secagg::PairSeed seed{};
    ASSERT_EQ(
        masker.pairSeed(neighbour, request.publicKey, secagg::transcriptHash(directive), seed),
        secagg::MaskResult::Ok);
    // The device added the pair's words when its key is the smaller one.
    ASSERT_TRUE(masker.applyPairMask(seed, request.publicKey < neighbour.publicKey(), words.data(),
                                     words.size()));
    // volume_change, now, A1RABVCI, en-GB; then the checksum.
    std::vector<uint32_t> expected(21, 0);
    for (const size_t hot : {6, 11, 14, 18}) {
        expected[hot] = 1;
    }
    expected[20] = 4;
    EXPECT_EQ(words, expected);
    EXPECT_TRUE(secagg::checksumHolds(words.data(), words.size()));
}

TEST_F(WiredDaemonTest, AfterAKillTheNextStartCreatesThePersistedCampaignAgain) {
    startDaemon();
    ASSERT_EQ(ctl({"fact", "FactOrvuManager", "/data/vemo/campaign.json"}), 0);
    sendVolumeChange();
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/events", 1, 30s)) << daemon->output();
    daemon->signal(SIGKILL);
    ASSERT_EQ(daemon->waitForExit(10s), 128 + SIGKILL);

    startDaemon();
    EXPECT_TRUE(daemon->waitForOutput(
        "startCampaign:Wrote new campaign path /data/vemo/campaign.json to default file path "
        "/data/vemo//config",
        1s))
        << daemon->output();
    sendVolumeChange();
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/events", 2, 30s)) << daemon->output();
    EXPECT_EQ(cloud.requestsTo("/v20160207/event").size(), 2u);  // announced again
}

TEST_F(WiredDaemonTest, AStalledOrFailingCloudNeverHoldsTheBinderThreads) {
    cloud.respondWith(500, "{}", {200});  // the announcement gets through, nothing after it
    cloud.holdAnswers();
    startDaemon();
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/event", 1, 30s));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ctl({"ping"}), 0);
    EXPECT_EQ(ctl({"fact", "FactOrvuManager", "/data/vemo/campaign.json"}), 0);
    sendVolumeChange();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    cloud.release();
    EXPECT_TRUE(daemon->waitForOutput("not delivered after 5 attempts: HTTP 500", 30s))
        << daemon->output();
    EXPECT_EQ(cloud.requestsTo("/v20160207/events").size(), 5u);
    EXPECT_EQ(ctl({"ping"}), 0);
}

TEST_F(WiredDaemonTest, AGradientRequestReachesTheCloudAndTheClientHearsBack) {
    const float gradients[] = {0.5f, -1.0f, 2.0f};
    root.writeFile("/data/vemo/engb1.flgr",
                   std::string(reinterpret_cast<const char*>(gradients), sizeof gradients));
    root.writeFile("/data/vemo/requested.flgr", "any");
    cloud.setPollHold(60s);  // a long poll is in flight when the daemon is stopped
    startDaemon();
    std::string out;
    EXPECT_EQ(ctl({"flgr", "/data/vemo/requested.flgr", "wakeword", "{}", "2.0"}, &out), 0);
    EXPECT_NE(out.find("onResults: status 0"), std::string::npos) << out;
    EXPECT_EQ(ctl({"flgr", "/data/vemo/absent.flgr", "wakeword", "{}", "2.0"}), 1);

    ASSERT_TRUE(cloud.waitForRequests("/v20160207/event", 2, 30s));
    const PostedEvent posted = parseEvent(cloud.requestsTo("/v20160207/event")[1]);
    EXPECT_EQ(posted.name, "ParticipationRequest");
    secagg::ParticipationRequest request;
    std::string error;
    ASSERT_TRUE(secagg::parseParticipationRequest(posted.payload, request, error)) << error;
    EXPECT_EQ(request.kind, secagg::Kind::Flgr);
    EXPECT_EQ(request.name, "wakeword");
    EXPECT_EQ(request.secondName, "{}");
    EXPECT_EQ(request.length, 3u);
    EXPECT_EQ(request.scale, 2.0f);

    const auto stopAt = std::chrono::steady_clock::now();
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(10s), 0) << daemon->output();
    EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 2s);
    daemon.reset();
}

TEST_F(WiredDaemonTest, AServiceThatCannotBePublishedEndsTheProcessWithCode1) {
    root.writeFile("/dev", "not a directory");
    ChildProcess failing(VEMO_DAEMON_PATH, {}, env());
    EXPECT_EQ(failing.waitForExit(30s), 1) << failing.output();
    for (const char* line :
         {"E Vemo:VemoDaemon: setup:Could not start service connector/host IPC. Status = 6",
          "E Vemo:VemodMain: main:Fail to setup the vemod, error: 6"}) {
        EXPECT_NE(failing.output().find(line), std::string::npos) << failing.output();
    }
}

}  // namespace
