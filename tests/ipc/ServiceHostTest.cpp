#include "ipc/ServiceHost.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "TempDeviceRoot.h"
#include "hostlog/LogCapture.h"
#include "ipc/BinderServiceHost.h"

namespace {

TEST(ServiceHostTest, ConcurrentFirstCallsShareOneBinderHost) {
    std::vector<std::shared_ptr<vemo::ipc::ServiceHost>> hosts(8);
    std::vector<std::thread> threads;
    for (auto& host : hosts) {
        threads.emplace_back([&host] { host = vemo::ipc::ServiceHost::getInstance(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_NE(dynamic_cast<vemo::ipc::BinderServiceHost*>(hosts[0].get()), nullptr);
    for (const auto& host : hosts) {
        EXPECT_EQ(host, hosts[0]);
    }
}

// Publication itself is shown by every cross-process test: flgr_test_service
// starts through ServiceHost and the clients find it under its descriptor.
TEST(ServiceHostTest, FailedRegistrationReturnsSix) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/dev/socket", "a file where the socket directory belongs");
    hostlog::LogCapture log;
    EXPECT_EQ(vemo::ipc::BinderServiceHost().start(nullptr), 6);
    EXPECT_TRUE(
        log.contains(ANDROID_LOG_ERROR, "Vemo:FlgrBinderHost",
                     "start:addServiceFailed, descriptor=vemo.ipc.IFlgrService, status=-19"))
        << hostlog::describe(log.entries());
}

}  // namespace
