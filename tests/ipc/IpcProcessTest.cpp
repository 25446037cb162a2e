// The service in its own process (flgr_test_service over a recording
// connector), driven from this one through the binder emulation.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "ChildProcess.h"
#include "ParcelBytes.h"
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
using vemo::test::ChildProcess;

const char kPublished[] = "start:addedBinderService, descriptor=vemo.ipc.IFlgrService";

class WaitingCallback : public vemo::ipc::BnFlgrCallback {
  public:
    Status onResults(const PFlgrResponse& response) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++calls_;
        status_ = response.getResponse() ? response.getResponse()->getStatus() : -1;
        thread_ = std::this_thread::get_id();
        cond_.notify_all();
        return Status::ok();
    }
    bool waitForCall(std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(mutex_);
        return cond_.wait_for(lock, bound, [this] { return calls_ > 0; });
    }
    std::mutex mutex_;  // guards the fields below
    std::condition_variable cond_;
    int calls_ = 0;
    int status_ = -1;
    std::thread::id thread_;
};

class IpcProcessTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { android::ProcessState::self()->startThreadPool(); }

    void startService(const std::vector<std::string>& args = {}) {
        service_ = std::make_unique<ChildProcess>(
            FLGR_TEST_SERVICE_PATH, args,
            std::map<std::string, std::string>{{"VEMO_DEVICE_ROOT", root_.root()}});
        ASSERT_TRUE(service_->waitForOutput(kPublished, 30s)) << service_->output();
        binder_ = android::defaultServiceManager()->checkService(IFlgrService::descriptor);
        ASSERT_NE(binder_, nullptr);
        proxy_ = IFlgrService::asInterface(binder_);
        ASSERT_NE(proxy_, nullptr);
    }
    size_t occurrences(const std::string& fragment) const {
        const std::string out = service_->output();
        size_t count = 0;
        for (size_t at = out.find(fragment); at != std::string::npos;
             at = out.find(fragment, at + 1)) {
            ++count;
        }
        return count;
    }
    static std::shared_ptr<FlgrFileRequest> params() {
        return std::make_shared<FlgrFileRequest>("/data/vemo/engb1.flgr", "app_1", "{}", 0.25f);
    }

    hostlog::LogCapture quiet_;  // the client's own parcel log lines stay off stderr
    vemo::test::TempDeviceRoot root_;
    std::unique_ptr<ChildProcess> service_;
    sp<android::IBinder> binder_;
    sp<IFlgrService> proxy_;
};

TEST_F(IpcProcessTest, FactRequestDeliversTheThreeStrings) {
    startService();
    const Status status = proxy_->factRequest(PFactRequest("tester", "FactOrvuManager", "a b"));
    EXPECT_TRUE(status.isOk()) << status.toString8().string();
    EXPECT_TRUE(service_->waitForOutput(
        "RecordingConnector:factRequest client=tester producer=FactOrvuManager message=a b", 10s))
        << service_->output();
}

TEST_F(IpcProcessTest, FlgrRequestIsAcceptedAndCompletedLaterOnABinderThread) {
    startService({"--delay-ms", "100"});
    const sp<WaitingCallback> callback = new WaitingCallback();
    const Status status = proxy_->flgrRequest(PFlgrRequest("tester", params()), callback);
    ASSERT_TRUE(status.isOk()) << status.toString8().string();
    ASSERT_TRUE(callback->waitForCall(20s)) << service_->output();
    std::lock_guard<std::mutex> lock(callback->mutex_);
    EXPECT_EQ(callback->calls_, 1);
    EXPECT_EQ(callback->status_, 0);
    EXPECT_NE(callback->thread_, std::this_thread::get_id());
    EXPECT_NE(service_->output().find("RecordingConnector:flgrRequest client=tester "
                                      "file=/data/vemo/engb1.flgr app=app_1 metadata={} "
                                      "scale=0.25"),
              std::string::npos)
        << service_->output();
}

TEST_F(IpcProcessTest, ConnectorStatusReachesTheClient) {
    startService({"--status", "3"});
    const sp<WaitingCallback> callback = new WaitingCallback();
    for (const Status& status : {proxy_->factRequest(PFactRequest("t", "p", "m")),
                                 proxy_->flgrRequest(PFlgrRequest("t", params()), callback)}) {
        EXPECT_EQ(status.exceptionCode(), Status::EX_SERVICE_SPECIFIC);
        EXPECT_EQ(status.serviceSpecificErrorCode(), 3);
        EXPECT_STREQ(status.exceptionMessage().string(), "UnknownError");
    }
    EXPECT_TRUE(service_->waitForOutput("flgrRequest:ServiceDelegateError, code=3", 10s));
    std::lock_guard<std::mutex> lock(callback->mutex_);
    EXPECT_EQ(callback->calls_, 0);
}

TEST_F(IpcProcessTest, NoConnectorAnswersServerNotReady) {
    startService({"--no-connector"});
    const sp<WaitingCallback> callback = new WaitingCallback();
    for (const Status& status : {proxy_->factRequest(PFactRequest("t", "p", "m")),
                                 proxy_->flgrRequest(PFlgrRequest("t", params()), callback)}) {
        EXPECT_EQ(status.exceptionCode(), Status::EX_SERVICE_SPECIFIC);
        EXPECT_EQ(status.serviceSpecificErrorCode(), 121);
        EXPECT_STREQ(status.exceptionMessage().string(), "ServerNotReady");
    }
}

TEST_F(IpcProcessTest, RefusalsAndDefaultHandlingAcrossProcesses) {
    startService();
    // A null callback is refused before the connector.
    const Status nullCallback = proxy_->flgrRequest(PFlgrRequest("t", params()), nullptr);
    EXPECT_EQ(nullCallback.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(nullCallback.transactionError(), android::UNKNOWN_ERROR);

    android::Parcel data;
    android::Parcel reply;
    data.writeInterfaceToken(android::String16("vemo.ipc.IFlgrCallback"));
    data.writeParcelable(PFactRequest("t", "p", "wrong-token"));
    EXPECT_EQ(binder_->transact(IFlgrService::FACT_REQUEST, data, &reply), android::BAD_TYPE);
    EXPECT_EQ(reply.dataSize(), 0u);

    // A record that ends after two of its three strings.
    vemo::test::setWireWords(&data, "");
    data.writeInterfaceToken(IFlgrService::descriptor);
    data.writeInt32(1);
    data.writeCString("t");
    data.writeCString("p");
    EXPECT_EQ(binder_->transact(IFlgrService::FACT_REQUEST, data, &reply), android::BAD_VALUE);

    EXPECT_EQ(binder_->transact(3, data, &reply), android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(binder_->pingBinder(), android::OK);
    EXPECT_EQ(android::String8(binder_->getInterfaceDescriptor()),
              android::String8("vemo.ipc.IFlgrService"));

    // Still serving, and nothing refused reached the connector.
    EXPECT_TRUE(proxy_->factRequest(PFactRequest("t", "p", "after")).isOk());
    ASSERT_TRUE(service_->waitForOutput("message=after", 10s));
    EXPECT_EQ(occurrences("RecordingConnector:"), 1u) << service_->output();
}

TEST_F(IpcProcessTest, ConcurrentClientsLoseAndDuplicateNothing) {
    startService();
    constexpr int kThreads = 8;
    constexpr int kCalls = 1000;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < kCalls; ++k) {
                const std::string message = "t" + std::to_string(t) + "-" + std::to_string(k) + ";";
                if (!proxy_->factRequest(PFactRequest("load", "p", message)).isOk()) {
                    ++failures;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    // Lines are written before each call returns, so this one comes last.
    ASSERT_TRUE(proxy_->factRequest(PFactRequest("load", "p", "end;")).isOk());
    ASSERT_TRUE(service_->waitForOutput("message=end;", 60s));

    std::map<std::string, int> seen;
    std::istringstream lines(service_->output());
    const std::string marker = "RecordingConnector:factRequest client=load producer=p message=";
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, marker.size(), marker) == 0) {
            ++seen[line.substr(marker.size())];
        }
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kCalls + 1));
    for (int t = 0; t < kThreads; ++t) {
        for (int k = 0; k < kCalls; ++k) {
            const std::string message = "t" + std::to_string(t) + "-" + std::to_string(k) + ";";
            ASSERT_EQ(seen[message], 1) << message;
        }
    }
}

}  // namespace
