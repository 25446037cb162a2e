#pragma once
// The fixture of the cross-process binder tests: a fresh device root with
// binder_test_server running in it.

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "ChildProcess.h"
#include "EchoService.h"
#include "TempDeviceRoot.h"

namespace vemo {
namespace test {

// Calls `to` with the echo service's token followed by what `fill` writes.
inline android::status_t callEcho(const android::sp<android::IBinder>& to, uint32_t code,
                                  const std::function<void(android::Parcel*)>& fill,
                                  android::Parcel* reply = nullptr) {
    android::Parcel data;
    data.writeInterfaceToken(android::String16(kEchoDescriptor));
    fill(&data);
    return to->transact(code, data, reply);
}

// CALL_ME_LATER to `to`: after `delayMs` it calls `callback` with `value`.
inline android::status_t callMeLater(const android::sp<android::IBinder>& to,
                                     const android::sp<android::IBinder>& callback, int32_t delayMs,
                                     int32_t value) {
    return callEcho(to, CALL_ME_LATER, [&](android::Parcel* p) {
        p->writeStrongBinder(callback);
        p->writeInt32(delayMs);
        p->writeInt32(value);
    });
}

// True once `done` holds, polled for up to 10 s.
inline bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Line `index` of a registry entry file: 0 its magic, 1 its socket, 2 its node.
inline std::string registryLine(const std::string& entryFile, int index) {
    std::ifstream in(entryFile);
    std::string line;
    for (int i = 0; i <= index; ++i) {
        std::getline(in, line);
    }
    return line;
}

// A fresh device root, and binder_test_server serving in it.
class EchoServerFixture : public ::testing::Test {
  protected:
    // Starts binder_test_server publishing kName (further arguments: max
    // threads, idle and partial-frame deadlines) and finds its service.
    void startServer(const std::vector<std::string>& more = {}) {
        std::vector<std::string> args{kName};
        args.insert(args.end(), more.begin(), more.end());
        server.reset(
            new ChildProcess(BINDER_TEST_SERVER, args, {{"VEMO_DEVICE_ROOT", root.root()}}));
        ASSERT_TRUE(server->waitForOutput("ready pid=", std::chrono::seconds(20)))
            << server->output();
        service = android::defaultServiceManager()->checkService(android::String16(kName));
        ASSERT_NE(service, nullptr);
        const std::string out = server->output();
        serverPid = std::stoi(out.substr(out.find("ready pid=") + 10));
    }

    void TearDown() override {
        // A sanitizer build of the server reports its own findings on stderr.
        if (server != nullptr) {
            EXPECT_EQ(server->output().find("Sanitizer"), std::string::npos) << server->output();
        }
    }

    // Calls the service with its token followed by `ints`.
    android::status_t call(uint32_t code, std::initializer_list<int32_t> ints = {},
                           android::Parcel* reply = nullptr) {
        return callEcho(
            service, code,
            [&](android::Parcel* p) {
                for (const int32_t v : ints) {
                    p->writeInt32(v);
                }
            },
            reply);
    }

    // The first int32 of the reply; INT32_MIN when the call failed.
    int32_t ask(uint32_t code, std::initializer_list<int32_t> ints = {}) {
        android::Parcel reply;
        return call(code, ints, &reply) == android::OK ? reply.readInt32() : INT32_MIN;
    }

    static constexpr const char* kName = "vemo.test.echo";
    TempDeviceRoot root;
    std::unique_ptr<ChildProcess> server;
    int serverPid = 0;
    android::sp<android::IBinder> service;
};

}  // namespace test
}  // namespace vemo
