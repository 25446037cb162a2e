// The aggregation manager over a scripted core and a recording cloud library.
#include "aggregation/VemoManager.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <climits>

#include "RecordingComm.h"
#include "ScriptedCore.h"
#include "TempDeviceRoot.h"
#include "aggregation/FactManager.h"
#include "aggregation/FlgrConnectorImpl.h"
#include "fact/FactHeartbeatMetric.h"

namespace vemo {
namespace {

using test::RecordingComm;
using test::ScriptedCore;
using tolmocomm::TolmoDirective;
using tolmocomm::TolmoEventResult;

const char kTag[] = "Vemo:VemoManager";
const char kNs[] = "RA.Tolmo.SecureAggregationSessionController";

int32_t count(const char* name) {
    return fact::FactHeartbeatMetric::GetInstance().getCount(name);
}

TolmoDirective directive(const std::string& payload) {
    return TolmoDirective(kNs, "UploadMaskedData", "m-1", "", payload, "", "c-1");
}

class VemoManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { ScriptedCore::instance().reset(); }
    ScriptedCore::Calls calls() { return ScriptedCore::instance().calls(); }

    test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    RecordingComm comm;
};

TEST(AppendChecksumTest, AppendsTheSumModulo2To31WithItsSign) {
    const struct {
        std::vector<int> in, out;
    } cases[] = {
        {{1, 2, 3}, {1, 2, 3, 6}},
        {{INT_MAX, 1}, {INT_MAX, 1, 0}},
        {{-1}, {-1, -1}},
        {{INT_MIN, -1}, {INT_MIN, -1, -1}},
        {{INT_MAX, INT_MAX, INT_MAX}, {INT_MAX, INT_MAX, INT_MAX, INT_MAX - 2}},
        {{}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(appendChecksum(c.in.data(), static_cast<unsigned>(c.in.size())), c.out);
    }
}

TEST_F(VemoManagerTest, AnnouncesItsCapabilityAndSubscribesToTheMaskDirective) {
    {
        VemoManager manager(comm);
        ASSERT_EQ(comm.announcements.size(), 1u);
        const tolmocomm::TolmoEvent& event = comm.announcements[0].event;
        EXPECT_EQ(event.getNamespace(), "Tolmo.Discovery");
        EXPECT_EQ(event.getName(), "AddOrUpdateReport");
        EXPECT_EQ(event.getPayload(), VemoManager::kCapabilityPayload);
        EXPECT_EQ(event.getEventPath(), "/v20160207/event");
        EXPECT_EQ(event.getPayloadVersion(), "1.0");
        EXPECT_FALSE(event.isSynchronous());
        EXPECT_FALSE(comm.contextGiven);
        ASSERT_EQ(comm.subscriptions.size(), 1u);
        EXPECT_EQ(comm.subscriptions[0].getNamespace(), kNs);
        EXPECT_EQ(comm.subscriptions[0].getName(), "UploadMaskedData");
        comm.announcements[0].onResult(TolmoEventResult(2));
        EXPECT_TRUE(logs.contains(ANDROID_LOG_INFO, kTag,
                                  "operator():EventDeliveryConfirmationCb: result is 2"));
    }
    // Nothing may reach a manager that is gone.
    EXPECT_EQ(comm.shutdowns, 1);
}

TEST_F(VemoManagerTest, AVectorBecomesAParticipationRequestEvent) {
    VemoManager manager(comm);
    EXPECT_EQ(manager.handleFactVectorCallback("app", nullptr, 0, "meta"), 1);
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_ERROR, kTag, "handleFactVectorCallback:FACT vector size is 0"));
    EXPECT_TRUE(calls().integralNames.empty());
    EXPECT_TRUE(comm.events.empty());

    const int data[] = {0, 1, 0};
    EXPECT_EQ(manager.handleFactVectorCallback("app", data, 3, "meta"), 0);
    EXPECT_EQ(calls().integralNames, std::vector<std::string>{"app"});
    EXPECT_EQ(calls().integralData, (std::vector<std::vector<int32_t>>{{0, 1, 0, 1}}));
    EXPECT_EQ(calls().integralSecondNames, std::vector<std::string>{"meta"});
    ASSERT_EQ(comm.events.size(), 1u);
    const tolmocomm::TolmoEvent& event = comm.events[0].event;
    EXPECT_EQ(event.getNamespace(), kNs);
    EXPECT_EQ(event.getName(), "ParticipationRequest");
    EXPECT_EQ(event.getPayload(), "request-1");
    EXPECT_EQ(event.getEventPath(), "/v20160207/events");
    EXPECT_EQ(event.getPayloadVersion(), "1");

    // What the cloud made of the event is counted unless it got there.
    for (int code = 0; code <= 4; ++code) {
        const int32_t before = count("ParticipationRequestPrqEventError");
        comm.events[0].onResult(TolmoEventResult(code));
        EXPECT_EQ(count("ParticipationRequestPrqEventError") - before, code == 0 || code == 4)
            << code;
    }

    ScriptedCore::Codes refusing;
    refusing.integralInitiate = 1;
    ScriptedCore::instance().setCodes(refusing);
    ScriptedCore::instance().setInitiateOutput("", false);
    EXPECT_THROW(manager.handleFactVectorCallback("app", data, 3, "meta"), std::runtime_error);
    EXPECT_EQ(comm.events.size(), 1u);
}

TEST_F(VemoManagerTest, OnlyADirectiveWithAPayloadObjectReachesTheCore) {
    VemoManager manager(comm);
    const struct {
        const char* payload;
        const char* error;  // nullptr: masked
    } cases[] = {
        {"not json", "operator():VEMO directive can not been parsed: not json"},
        {"[1]", "operator():Payload does not exist in the directive or is not an object: [1]"},
        {"{\"payload\":\"x\"}",
         "operator():Payload does not exist in the directive or is not an object: "
         "{\"payload\":\"x\"}"},
        {"{ \"payload\" : { \"b\" : 1, \"a\" : [2] } }", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.payload);
        ScriptedCore::instance().reset();
        logs.clear();
        comm.directiveHandler(directive(c.payload));
        if (c.error != nullptr) {
            EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, c.error))
                << hostlog::describe(logs.entries());
            EXPECT_TRUE(calls().masks.empty());
        } else {
            EXPECT_EQ(calls().masks, std::vector<std::string>{"{\"b\":1,\"a\":[2]}"});
        }
    }
    EXPECT_TRUE(logs.contains(
        ANDROID_LOG_INFO, kTag,
        "operator():DirectiveCb: directive is {\"event\":{\"header\":{\"namespace\":\"" +
            std::string(kNs) +
            "\",\"name\":\"UploadMaskedData\",\"messageId\":\"m-1\",\"eventCorrelationToken\":"
            "\"c-1\"},\"payload\":{\"payload\":{\"b\":1,\"a\":[2]}}}}"));

    ScriptedCore::Codes refusing;
    refusing.mask = 3;
    ScriptedCore::instance().setCodes(refusing);
    const int32_t before = count("DataMaskError");
    comm.directiveHandler(directive("{\"payload\":{}}"));
    EXPECT_EQ(count("DataMaskError"), before + 1);
}

TEST_F(VemoManagerTest, EmptyResultsFromTheCoreAreLoggedAndDropped) {
    VemoManager manager(comm);
    ASSERT_TRUE(ScriptedCore::instance().deliverIntegral({}, "m", "a", "c"));
    ASSERT_TRUE(ScriptedCore::instance().deliverFlgr({}));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, "operator():Masked data size is 0"));
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, "operator():Flgr result blob size is 0"));
}

TEST_F(VemoManagerTest, AGradientRequestNeedsBothFilesAndMasksTheTestGradients) {
    VemoManager manager(comm);
    const ipc::FlgrFileRequest request("/data/vemo/requested.flgr", "app", "meta", 2.5f);
    EXPECT_EQ(manager.flgrRequest("client", request), 1);
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_ERROR, kTag,
                      "flgrRequest:Cannot open the gradient file: /data/vemo/requested.flgr"));
    root.writeFile("/data/vemo/requested.flgr", "requested");
    EXPECT_EQ(manager.flgrRequest("client", request), 1);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "flgrRequest:Cannot open the gradient file: /data/vemo/engb1.flgr"));
    EXPECT_TRUE(calls().flgrBlobs.empty());

    root.writeFile("/data/vemo/engb1.flgr", "test");
    EXPECT_EQ(manager.flgrRequest("client", request), 0);
    EXPECT_EQ(calls().flgrBlobs, (std::vector<std::vector<uint8_t>>{{'t', 'e', 's', 't'}}));
    EXPECT_EQ(calls().flgrApplicationIds, std::vector<std::string>{"app"});
    EXPECT_EQ(calls().flgrScales, std::vector<float>{2.5f});
    EXPECT_EQ(calls().flgrMetadata, std::vector<std::string>{"meta"});
    ASSERT_EQ(comm.events.size(), 1u);
    EXPECT_EQ(comm.events[0].event.getEventPath(), "/v20160207/event");
    EXPECT_EQ(comm.events[0].event.getName(), "ParticipationRequest");
}

TEST(ReadFileToBlobTest, ReadsRegularFilesOnly) {
    test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    root.writeFile("/blob", std::string("a\0b", 3));
    std::vector<uint8_t> blob{9};
    EXPECT_EQ(readFileToBlob(root.path("/blob"), blob), 0);
    EXPECT_EQ(blob, (std::vector<uint8_t>{'a', 0, 'b'}));
    EXPECT_EQ(readFileToBlob(root.path("/"), blob), 1);
    EXPECT_EQ(readFileToBlob(root.path("/missing"), blob), 1);
    EXPECT_TRUE(
        logs.contains(ANDROID_LOG_ERROR, kTag,
                      "readFileToBlob:Error: No such file or directory, " + root.path("/missing")));
    EXPECT_EQ(blob, (std::vector<uint8_t>{'a', 0, 'b'}));
}

// Last: it makes the process's manager singleton over its own recording comm.
TEST_F(VemoManagerTest, TheConnectorAnswers3WithoutCompletingARejectedRequest) {
    static RecordingComm singletonComm;
    VemoManager::getInstanceWithTolmoComm(singletonComm);
    FlgrConnectorImpl connector(std::make_shared<FactManager>());
    int completions = 0;
    const auto done = [&](VemoStatus status, std::shared_ptr<FlgrResultContext> context,
                          std::shared_ptr<FlgrResults> results) {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(context, nullptr);
        EXPECT_EQ(results, nullptr);
        ++completions;
    };
    const ipc::FlgrFileRequest request("/data/vemo/requested.flgr", "app", "meta", 1.0f);
    EXPECT_EQ(connector.flgrRequest("client", request, done), 3);  // no files
    root.writeFile("/data/vemo/requested.flgr", "r");
    root.writeFile("/data/vemo/engb1.flgr", "gradients");
    ScriptedCore::Codes refusing;
    refusing.flgrInitiate = 1;
    ScriptedCore::instance().setCodes(refusing);
    ScriptedCore::instance().setInitiateOutput("", false);
    EXPECT_EQ(connector.flgrRequest("client", request, done), 3);  // the core throws
    EXPECT_EQ(completions, 0);
    ScriptedCore::instance().reset();
    EXPECT_EQ(connector.flgrRequest("client", request, done), 0);
    EXPECT_EQ(completions, 1);
}

}  // namespace
}  // namespace vemo
