#include "ipc/ServiceHost.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <android/log.h>
#include <binder/IServiceManager.h>

#include "RecordingConnector.h"
#include "TempDeviceRoot.h"
#include "hostlog/LogCapture.h"
#include "ipc/BinderServiceHost.h"
#include "ipc/IFlgrService.h"

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

TEST(ServiceHostTest, StartPublishesTheServiceUnderItsDescriptor) {
    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture log;
    const auto connector = std::make_shared<vemo::test::RecordingConnector>();
    ASSERT_EQ(vemo::ipc::BinderServiceHost().start(connector), 0);
    EXPECT_EQ(
        log.messages("Vemo:FlgrBinderHost"),
        std::vector<std::string>{"start:addedBinderService, descriptor=vemo.ipc.IFlgrService"});
    const auto service = vemo::ipc::IFlgrService::asInterface(
        android::defaultServiceManager()->checkService(vemo::ipc::IFlgrService::descriptor));
    ASSERT_NE(service, nullptr);
    EXPECT_TRUE(service->factRequest(vemo::ipc::PFactRequest("c", "p", "m")).isOk());
    EXPECT_EQ(connector->factCalls().size(), 1u);
}

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
