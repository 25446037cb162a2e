// The wrapper over a scripted core: codes become statuses, exceptions with
// exact texts and heartbeat counts; results and log lines are forwarded.
#include "aggregation/VemoCoreWrapper.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <functional>
#include <stdexcept>

#include "ScriptedCore.h"
#include "fact/FactHeartbeatMetric.h"

namespace vemo {
namespace {

using test::ScriptedCore;

const char kTag[] = "Vemo:VemoCoreWrapper";

// The text of the runtime_error `call` throws; empty when it returns.
std::string thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

class VemoCoreWrapperTest : public ::testing::Test {
  protected:
    void SetUp() override { core().reset(); }
    static ScriptedCore& core() { return ScriptedCore::instance(); }
    static int32_t count(const char* name) {
        return fact::FactHeartbeatMetric::GetInstance().getCount(name);
    }
    static void script(std::function<void(ScriptedCore::Codes&)> change) {
        ScriptedCore::Codes codes;
        change(codes);
        core().setCodes(codes);
    }
};

TEST_F(VemoCoreWrapperTest, EachFailedConstructionStepThrowsItsTextAndCountsItsMetric) {
    struct Row {
        int ScriptedCore::Codes::*code;
        const char* metric;
        const char* text;
    };
    const Row rows[] = {
        {&ScriptedCore::Codes::registerLogging, "VemoHandleRegisterLoggingCallbackError",
         "vemoRegisterLoggingCallback failed"},
        {&ScriptedCore::Codes::create, "VemoHandleCreateError", "vemoHandleCreate failed"},
        {&ScriptedCore::Codes::registerFlgr, "VemoHandleRegisterFlgrResultCallbackError",
         "vemoHandleRegisterFlgrResultCallback failed"},
        {&ScriptedCore::Codes::registerIntegral, "VemoHandleRegisterIntegralResultCallbackError",
         "vemoHandleRegisterIntegralResultCallback failed"},
    };
    for (const Row& row : rows) {
        core().reset();
        script([&](ScriptedCore::Codes& c) { c.*row.code = 3; });
        const int32_t before = count(row.metric);
        EXPECT_EQ(row.text, thrown([] { VemoCoreWrapper wrapper; }));
        EXPECT_EQ(before + 1, count(row.metric)) << row.metric;
        EXPECT_TRUE(core().calls().destroyed.empty());
    }
}

TEST_F(VemoCoreWrapperTest, DestroysTheHandleItCreated) {
    { VemoCoreWrapper wrapper; }
    EXPECT_EQ(std::vector<VemoHandle>{core().handle()}, core().calls().destroyed);
}

TEST_F(VemoCoreWrapperTest, MaskMapsTheCoreCodes) {
    VemoCoreWrapper wrapper;
    const std::pair<int, VemoStatus> table[] = {{0, 0}, {1, 1}, {2, 6}, {3, 6},
                                                {4, 6}, {5, 0}, {7, 6}, {-1, 6}};
    for (const auto& [code, status] : table) {
        script([&](ScriptedCore::Codes& c) { c.mask = code; });
        EXPECT_EQ(status, wrapper.mask("{\"d\":1}")) << code;
    }
    EXPECT_EQ("{\"d\":1}", core().calls().masks.back());
}

TEST_F(VemoCoreWrapperTest, IntegralRequestCodes) {
    VemoCoreWrapper wrapper;
    hostlog::LogCapture log;
    const int data[2] = {3, -4};
    std::string out = "old";

    script([](ScriptedCore::Codes& c) { c.integralInitiate = 5; });
    const int32_t evicted = count("VemoOldRequestEvicted");
    EXPECT_EQ(0, wrapper.integralInitiateNewRequest("n", data, 2, "s", out));
    EXPECT_EQ("request-1", out);
    EXPECT_EQ(evicted + 1, count("VemoOldRequestEvicted"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, kTag,
                             "integralInitiateNewRequest:Old VEMO request evicted"));
    EXPECT_EQ((std::vector<int32_t>{3, -4}), core().calls().integralData.back());

    struct Row {
        int initiate;
        bool present;
        int destroyString;
        const char* text;
        const char* out;
    };
    const Row rows[] = {
        {2, true, 0, "vemoHandleIntegralInitiateNewRequest failed", "old"},
        {0, false, 0, "vemoHandleIntegralInitiateNewRequest failed", "old"},
        {0, true, 1, "vemoDestroyString failed", "kept"},
    };
    for (const Row& row : rows) {
        script([&](ScriptedCore::Codes& c) {
            c.integralInitiate = row.initiate;
            c.destroyString = row.destroyString;
        });
        core().setInitiateOutput("kept", row.present);
        out = "old";
        const int32_t before = count("ParticipationRequestError");
        EXPECT_EQ(row.text,
                  thrown([&] { wrapper.integralInitiateNewRequest("n", data, 2, "s", out); }));
        EXPECT_EQ(before + 1, count("ParticipationRequestError"));
        EXPECT_EQ(row.out, out);
    }
}

TEST_F(VemoCoreWrapperTest, FlgrRequestThrowsOnAnyNonZeroCodeIncludingEviction) {
    VemoCoreWrapper wrapper;
    std::string out;
    EXPECT_EQ(0, wrapper.flgrInitiateNewRequest("app", {1, 2, 3, 4}, 0.5f, "meta", out));
    EXPECT_EQ("request-1", out);
    for (int code : {5, 1}) {
        script([&](ScriptedCore::Codes& c) { c.flgrInitiate = code; });
        EXPECT_EQ("vemoHandleFlgrInitiateNewRequest failed",
                  thrown([&] { wrapper.flgrInitiateNewRequest("app", {1}, 0.5f, "meta", out); }));
    }
}

TEST_F(VemoCoreWrapperTest, ResultsReachTheSetCallbackAndNullUserdataIsLogged) {
    VemoCoreWrapper wrapper;
    hostlog::LogCapture log;
    // No callback set: dropped without a line.
    EXPECT_TRUE(core().deliverIntegral({1}, "a", "b", "c"));
    EXPECT_TRUE(core().deliverFlgr({1}));
    EXPECT_TRUE(log.messages(kTag).empty());

    std::vector<std::string> seen;
    wrapper.setVemoIntegralResultCallback([&](VemoIntegralResult r) {
        seen.push_back(std::to_string(r.maskedData[0]) + r.firstText + r.secondText + r.thirdText);
    });
    wrapper.setVemoFlgrResultCallback(
        [&](VemoFlgrResult r) { seen.push_back("flgr" + std::to_string(r.length)); });
    core().deliverIntegral({9}, "a", "b", "c");
    core().deliverFlgr({1, 2});
    EXPECT_EQ((std::vector<std::string>{"9abc", "flgr2"}), seen);

    vemoIntegralResultCallback(VemoIntegralResult{}, nullptr);
    vemoFlgrResultCallback(VemoFlgrResult{}, nullptr);
    for (const char* tag : {"vemoIntegralResultCallback", "vemoFlgrResultCallback"}) {
        EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                                 std::string(tag) + ":Could not cast userdata to VemoCoreWrapper"));
    }
    EXPECT_EQ(2u, seen.size());
}

TEST_F(VemoCoreWrapperTest, CoreLogLevelsMapToPrioritiesAndUnknownLevelsAreErrors) {
    VemoCoreWrapper wrapper;
    hostlog::LogCapture log;
    // Levels 1 (error) to 5 (verbose) are Android's priorities 6 to 2.
    for (int level = 1; level <= 5; ++level) {
        ASSERT_TRUE(core().log(static_cast<VemoLogLevel>(level), "f:line"));
        EXPECT_EQ(7 - level, log.entries().back().priority) << level;
        EXPECT_EQ("f:line", log.entries().back().message);
    }
    for (int level : {0, 6}) {
        core().log(static_cast<VemoLogLevel>(level), "f:line");
        EXPECT_TRUE(
            log.contains(ANDROID_LOG_ERROR, kTag, "unknown log level: " + std::to_string(level)));
    }
}

}  // namespace
}  // namespace vemo
