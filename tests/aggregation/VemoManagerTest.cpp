// The aggregation manager over a scripted core and a recording cloud library;
// the whole way through the real core and cloud, with the directives the
// manager turns away, is the wired daemon's test.
#include "aggregation/VemoManager.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <climits>

#include "ScriptedCore.h"
#include "TempDeviceRoot.h"
#include "aggregation/FactManager.h"
#include "aggregation/FlgrConnectorImpl.h"
#include "fact/FactHeartbeatMetric.h"
#include "tolmocomm/ITolmoComm.h"

namespace vemo {
namespace {

using test::ScriptedCore;
using tolmocomm::TolmoEventResult;

const char kTag[] = "Vemo:VemoManager";

int32_t count(const char* name) {
    return fact::FactHeartbeatMetric::GetInstance().getCount(name);
}

// A cloud library that keeps what the manager hands it, so that the test can
// play the cloud: answer an event, call the directive handler.
class RecordingComm : public tolmocomm::ITolmoComm {
  public:
    void registerClient(const tolmocomm::TolmoEvent&, std::shared_ptr<tolmocomm::ClientContext>,
                        const std::vector<tolmocomm::DirectiveConfig>&,
                        tolmocomm::EventResultCallback,
                        tolmocomm::DirectiveCallback onDirective) override {
        directiveHandler = std::move(onDirective);
    }
    void sendEvent(const tolmocomm::TolmoEvent&, tolmocomm::EventResultCallback onResult) override {
        eventResults.push_back(std::move(onResult));
    }
    void shutdown() override {}

    tolmocomm::DirectiveCallback directiveHandler;
    std::vector<tolmocomm::EventResultCallback> eventResults;
};

class VemoManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { ScriptedCore::instance().reset(); }
    ScriptedCore::Calls calls() { return ScriptedCore::instance().calls(); }

    test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    RecordingComm comm;
};

TEST(AppendChecksumTest, AppendsTheSumModulo2To31WithItsSign) {
    const std::vector<int> cases[][2] = {
        {{1, 2, 3}, {1, 2, 3, 6}},
        {{INT_MAX, 1}, {INT_MAX, 1, 0}},
        {{-1}, {-1, -1}},
        {{INT_MIN, -1}, {INT_MIN, -1, -1}},
        {{INT_MAX, INT_MAX, INT_MAX}, {INT_MAX, INT_MAX, INT_MAX, INT_MAX - 2}},
        {{}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(appendChecksum(c[0].data(), static_cast<unsigned>(c[0].size())), c[1]);
    }
}

// What the wired daemon's test cannot bring about: an empty vector, the
// cloud's failure codes, a directive the core refuses.
TEST_F(VemoManagerTest, EmptyVectorsCloudFailuresAndRefusedDirectivesAreCounted) {
    VemoManager manager(comm);
    EXPECT_EQ(manager.handleFactVectorCallback("app", nullptr, 0, "meta"), 1);
    EXPECT_TRUE(calls().integralNames.empty());
    const int data[] = {0, 1, 0};
    EXPECT_EQ(manager.handleFactVectorCallback("app", data, 3, "meta"), 0);
    ASSERT_EQ(comm.eventResults.size(), 1u);
    for (int code = 0; code <= 4; ++code) {
        const int32_t before = count("ParticipationRequestPrqEventError");
        comm.eventResults[0](TolmoEventResult(code));
        EXPECT_EQ(count("ParticipationRequestPrqEventError") - before, code == 0 || code == 4)
            << code;
    }
    ScriptedCore::Codes refusing;
    refusing.mask = 3;
    ScriptedCore::instance().setCodes(refusing);
    const int32_t before = count("DataMaskError");
    comm.directiveHandler({"ns", "UploadMaskedData", "", "", "{\"payload\":{}}", "", ""});
    EXPECT_EQ(count("DataMaskError"), before + 1);
}

// Last: it makes the process's manager singleton over its own recording comm.
TEST_F(VemoManagerTest, TheConnectorAnswers3WithoutCompletingARefusedRequest) {
    static RecordingComm singletonComm;
    VemoManager::getInstanceWithTolmoComm(singletonComm);
    FlgrConnectorImpl connector(std::make_shared<FactManager>());
    int completions = 0;
    const auto done = [&](VemoStatus status, std::shared_ptr<FlgrResultContext>,
                          std::shared_ptr<FlgrResults>) { completions += status == 0 ? 1 : 100; };
    const ipc::FlgrFileRequest request("/data/vemo/requested.flgr", "app", "meta", 1.0f);
    root.writeFile("/data/vemo/requested.flgr", "r");
    EXPECT_EQ(connector.flgrRequest("client", request, done), 3);  // no test gradients
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "flgrRequest:Cannot open the gradient file: /data/vemo/engb1.flgr"));
    root.writeFile("/data/vemo/engb1.flgr", "test");
    ScriptedCore::Codes refusing;
    refusing.flgrInitiate = 1;
    ScriptedCore::instance().setCodes(refusing);
    ScriptedCore::instance().setInitiateOutput("", false);
    EXPECT_EQ(connector.flgrRequest("client", request, done), 3);  // the core throws
    EXPECT_EQ(completions, 0);
    ScriptedCore::instance().reset();
    EXPECT_EQ(connector.flgrRequest("client", request, done), 0);
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(calls().flgrBlobs, (std::vector<std::vector<uint8_t>>{{'t', 'e', 's', 't'}}));
}

}  // namespace
}  // namespace vemo
