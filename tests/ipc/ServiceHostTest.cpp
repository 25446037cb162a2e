#include "ipc/ServiceHost.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

}  // namespace
