// The service in its own process (flgr_test_service over a recording
// connector), driven from this one through the binder emulation.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <atomic>
#include <future>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "ChildProcess.h"
#include "TempDeviceRoot.h"
#include "hostlog/LogCapture.h"
#include "ipc/BnFlgrCallback.h"
#include "ipc/IFlgrService.h"

namespace {

using namespace std::chrono_literals;
using android::sp;
using android::binder::Status;
using vemo::ipc::FlgrFileRequest;
using vemo::ipc::IFlgrService;
using vemo::ipc::PFactRequest;
using vemo::ipc::PFlgrRequest;
using vemo::ipc::PFlgrResponse;

// Hands its one onResults (status, thread) to the test; a second call throws.
class WaitingCallback : public vemo::ipc::BnFlgrCallback {
  public:
    Status onResults(const PFlgrResponse& response) override {
        const auto* result = response.getResponse().get();
        results.set_value({result ? result->getStatus() : -1, std::this_thread::get_id()});
        return Status::ok();
    }
    std::promise<std::pair<int, std::thread::id>> results;
};

class IpcProcessTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { android::ProcessState::self()->startThreadPool(); }

    // args: separated by spaces.
    void startService(const std::string& args = "") {
        std::istringstream words(args);
        service_ = std::make_unique<vemo::test::ChildProcess>(
            FLGR_TEST_SERVICE_PATH,
            std::vector<std::string>{std::istream_iterator<std::string>(words),
                                     std::istream_iterator<std::string>()},
            std::map<std::string, std::string>{{"VEMO_DEVICE_ROOT", root_.root()}});
        ASSERT_TRUE(service_->waitForOutput(
            "start:addedBinderService, descriptor=vemo.ipc.IFlgrService", 30s))
            << service_->output();
        const sp<android::IBinder> binder =
            android::defaultServiceManager()->checkService(IFlgrService::descriptor);
        ASSERT_NE(binder, nullptr);
        proxy_ = IFlgrService::asInterface(binder);
    }
    // Sends a last factRequest and waits for the connector to see it, so that
    // every earlier call has been handled.
    void waitForServiceIdle() {
        ASSERT_TRUE(proxy_->factRequest(PFactRequest("t", "p", "idle;")).isOk());
        ASSERT_TRUE(service_->waitForOutput("message=idle;", 60s)) << service_->output();
    }
    static std::shared_ptr<FlgrFileRequest> params() {
        return std::make_shared<FlgrFileRequest>("/data/vemo/engb1.flgr", "app_1", "{}", 0.25f);
    }

    hostlog::LogCapture quiet_;  // the client's own parcel log lines stay off stderr
    vemo::test::TempDeviceRoot root_;
    std::unique_ptr<vemo::test::ChildProcess> service_;
    sp<IFlgrService> proxy_;
};

TEST_F(IpcProcessTest, FlgrRequestIsAcceptedAndCompletedLaterOnAnotherThread) {
    startService("--delay-ms 100");
    const sp<WaitingCallback> callback = new WaitingCallback();
    const Status status = proxy_->flgrRequest(PFlgrRequest("tester", params()), callback);
    ASSERT_TRUE(status.isOk()) << status.toString8().string();
    EXPECT_TRUE(
        service_->waitForOutput("RecordingConnector:flgrRequest client=tester "
                                "file=/data/vemo/engb1.flgr app=app_1 metadata={} "
                                "scale=0.25\n",
                                10s))
        << service_->output();
    auto results = callback->results.get_future();
    ASSERT_EQ(results.wait_for(20s), std::future_status::ready) << service_->output();
    const auto result = results.get();
    EXPECT_EQ(result.first, 0);
    EXPECT_NE(result.second, std::this_thread::get_id());
}

enum class Call { kFact, kFlgr, kFlgrEmptyParams, kFlgrNullCallback };

struct StatusCase {
    const char* name;
    const char* serviceArgs;
    Call call;
    int32_t exception;
    int32_t code;  // service-specific code, or the transaction error
    const char* message;
    const char* hostError;  // the service's error log line, "" for none
};

class IpcStatusTest : public IpcProcessTest, public ::testing::WithParamInterface<StatusCase> {};

TEST_P(IpcStatusTest, ClientReadsTheStatusAndTheServiceLogsIt) {
    const StatusCase& c = GetParam();
    startService(c.serviceArgs);
    const sp<WaitingCallback> callback = new WaitingCallback();
    Status status;
    if (c.call == Call::kFact) {
        status = proxy_->factRequest(PFactRequest("t", "p", "m"));
    } else {
        status = proxy_->flgrRequest(PFlgrRequest("t", c.call == Call::kFlgr ? params() : nullptr),
                                     c.call == Call::kFlgrNullCallback ? nullptr : callback);
    }
    EXPECT_EQ(status.exceptionCode(), c.exception);
    EXPECT_EQ(c.exception == Status::EX_SERVICE_SPECIFIC ? status.serviceSpecificErrorCode()
                                                         : status.transactionError(),
              c.code);
    EXPECT_STREQ(status.exceptionMessage().string(), c.message);
    if (*c.hostError != '\0') {
        EXPECT_TRUE(service_->waitForOutput(
            std::string(" E Vemo:FlgrBinderHost: ") + c.hostError + "\n", 10s))
            << service_->output();
    }
    if (*c.serviceArgs == '\0') {  // refused before the connector
        waitForServiceIdle();
        EXPECT_EQ(service_->output().find("RecordingConnector:flgrRequest"), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, IpcStatusTest,
    ::testing::Values(
        StatusCase{"FactConnectorStatus", "--status 3", Call::kFact, Status::EX_SERVICE_SPECIFIC, 3,
                   "UnknownError", "factRequest:ServiceDelegateError, code=3"},
        StatusCase{"FlgrConnectorStatus", "--status 3", Call::kFlgr, Status::EX_SERVICE_SPECIFIC, 3,
                   "UnknownError", "flgrRequest:ServiceDelegateError, code=3"},
        StatusCase{"FactNoConnector", "--no-connector", Call::kFact, Status::EX_SERVICE_SPECIFIC,
                   121, "ServerNotReady", "factRequest:ServiceDelegateIsNull"},
        StatusCase{"FlgrNoConnector", "--no-connector", Call::kFlgr, Status::EX_SERVICE_SPECIFIC,
                   121, "ServerNotReady", "flgrRequest:ServiceDelegateIsNull"},
        StatusCase{"FlgrEmptyParams", "", Call::kFlgrEmptyParams, Status::EX_SERVICE_SPECIFIC, 122,
                   "InvalidRequest", "flgrRequest:InvalidRequest, code=122"},
        StatusCase{"FlgrNullCallback", "", Call::kFlgrNullCallback, Status::EX_TRANSACTION_FAILED,
                   android::UNKNOWN_ERROR, "", ""}),
    [](const ::testing::TestParamInfo<StatusCase>& info) { return std::string(info.param.name); });

TEST_F(IpcProcessTest, ConcurrentClientsLoseAndDuplicateNothing) {
    startService();
    constexpr int kThreads = 8;
    constexpr int kCalls = 1000;
    std::atomic<int> failures{0};
    std::multiset<std::string> sent;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        for (int k = 0; k < kCalls; ++k) {
            sent.insert("t" + std::to_string(t) + "-" + std::to_string(k));
        }
        threads.emplace_back([&, t] {
            for (int k = 0; k < kCalls; ++k) {
                const std::string message = "t" + std::to_string(t) + "-" + std::to_string(k);
                failures += proxy_->factRequest(PFactRequest("load", "p", message)).isOk() ? 0 : 1;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    waitForServiceIdle();  // lines are written before each call returns

    std::multiset<std::string> seen;
    std::istringstream lines(service_->output());
    const std::string marker = "RecordingConnector:factRequest client=load producer=p message=";
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, marker.size(), marker) == 0) {
            seen.insert(line.substr(marker.size()));
        }
    }
    EXPECT_EQ(seen.size(), sent.size());
    EXPECT_TRUE(seen == sent) << "a request was lost, duplicated or changed";
}

}  // namespace
