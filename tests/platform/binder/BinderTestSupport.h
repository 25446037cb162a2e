#pragma once
// Shared fixture pieces for the cross-process binder tests: a fresh device
// root with binder_test_server running in it, and a recording callback.

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "ChildProcess.h"
#include "EchoService.h"
#include "TempDeviceRoot.h"

namespace vemo {
namespace test {

// Starts binder_test_server on this test's device root and finds its service.
class EchoServerFixture : public ::testing::Test {
  protected:
    void startServer(const std::string& maxThreads = "") {
        std::vector<std::string> args{kName};
        if (!maxThreads.empty()) {
            args.push_back(maxThreads);
        }
        server.reset(
            new ChildProcess(BINDER_TEST_SERVER, args, {{"VEMO_DEVICE_ROOT", root.root()}}));
        ASSERT_TRUE(server->waitForOutput("ready pid=", std::chrono::seconds(20)))
            << server->output();
        const std::string out = server->output();
        serverPid = std::stoi(out.substr(out.find("ready pid=") + 10));
        service = android::defaultServiceManager()->checkService(android::String16(kName));
        ASSERT_NE(service, nullptr);
    }

    void TearDown() override {
        // A sanitizer build of the server reports its own findings on stderr.
        if (server != nullptr) {
            EXPECT_EQ(server->output().find("Sanitizer"), std::string::npos) << server->output();
        }
    }

    android::status_t call(uint32_t code, android::Parcel* data, android::Parcel* reply,
                           uint32_t flags = 0) {
        return service->transact(code, *data, reply, flags);
    }

    // A data parcel that starts with the echo service's token.
    static std::unique_ptr<android::Parcel> request() {
        std::unique_ptr<android::Parcel> p(new android::Parcel());
        p->writeInterfaceToken(android::String16(kEchoDescriptor));
        return p;
    }

    static constexpr const char* kName = "vemo.test.echo";
    TempDeviceRoot root;
    std::unique_ptr<ChildProcess> server;
    int serverPid = 0;
    android::sp<android::IBinder> service;
};

// A local binder that records the calls it receives.
class RecordingCallback : public android::BBinder {
  public:
    struct Call {
        int32_t value;
        std::string text;
        pid_t callingPid;
        std::thread::id thread;
    };

    bool waitForCalls(size_t n, std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, bound, [&] { return calls.size() >= n; });
    }

    std::vector<Call> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }

  protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        if (code != 1) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        Call c;
        c.value = data.readInt32();
        c.text = android::String8(data.readString16()).string();
        c.callingPid = android::IPCThreadState::self()->getCallingPid();
        c.thread = std::this_thread::get_id();
        {
            std::lock_guard<std::mutex> lock(mutex);
            calls.push_back(c);
        }
        cv.notify_all();
        return android::OK;
    }

  private:
    std::mutex mutex;  // guards calls
    std::condition_variable cv;
    std::vector<Call> calls;
};

}  // namespace test
}  // namespace vemo
