#pragma once
// The fixture of the cross-process binder tests: a fresh device root with
// binder_test_server running in it.

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <string>

#include "ChildProcess.h"
#include "EchoService.h"
#include "TempDeviceRoot.h"

namespace vemo {
namespace test {

// Calls `to` with the echo service's token followed by what `fill` writes.
inline android::status_t callEcho(const android::sp<android::IBinder>& to, uint32_t code,
                                  const std::function<void(android::Parcel*)>& fill,
                                  android::Parcel* reply = nullptr, uint32_t flags = 0) {
    android::Parcel data;
    data.writeInterfaceToken(android::String16(kEchoDescriptor));
    fill(&data);
    return to->transact(code, data, reply, flags);
}

// A fresh device root, and binder_test_server serving in it.
class EchoServerFixture : public ::testing::Test {
  protected:
    // Starts binder_test_server publishing `name` (further arguments: max
    // threads, idle and partial-frame deadlines) and finds its service.
    std::unique_ptr<ChildProcess> launch(const std::string& name,
                                         const std::vector<std::string>& more,
                                         android::sp<android::IBinder>* found) {
        std::vector<std::string> args{name};
        args.insert(args.end(), more.begin(), more.end());
        std::unique_ptr<ChildProcess> child(
            new ChildProcess(BINDER_TEST_SERVER, args, {{"VEMO_DEVICE_ROOT", root.root()}}));
        EXPECT_TRUE(child->waitForOutput("ready pid=", std::chrono::seconds(20)))
            << child->output();
        *found = android::defaultServiceManager()->checkService(android::String16(name.c_str()));
        EXPECT_NE(*found, nullptr);
        return child;
    }

    void startServer(const std::vector<std::string>& more = {}) {
        server = launch(kName, more, &service);
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
                           android::Parcel* reply = nullptr, uint32_t flags = 0) {
        return callEcho(
            service, code,
            [&](android::Parcel* p) {
                for (const int32_t v : ints) {
                    p->writeInt32(v);
                }
            },
            reply, flags);
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
