#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <future>

#include "daemon/StopSignalWatcher.h"

namespace {

using namespace std::chrono_literals;

TEST(StopSignalWatcherTest, DeliversTermAndIntOnItsOwnThread) {
    for (int sig : {SIGTERM, SIGINT}) {
        std::promise<std::pair<int, std::thread::id>> got;
        {
            vemo::StopSignalWatcher watcher([&got](int s) {
                got.set_value({s, std::this_thread::get_id()});
            });
            kill(getpid(), sig);
            auto f = got.get_future();
            ASSERT_EQ(f.wait_for(30s), std::future_status::ready);
            const auto result = f.get();
            EXPECT_EQ(result.first, sig);
            EXPECT_NE(result.second, std::this_thread::get_id());
        }
    }
}

// The watcher takes one signal; a second one sent meanwhile must not kill the
// process once the mask is restored.
TEST(StopSignalWatcherTest, ASecondStopSignalIsDiscarded) {
    std::promise<int> got;
    {
        vemo::StopSignalWatcher watcher([&got](int s) { got.set_value(s); });
        kill(getpid(), SIGTERM);
        kill(getpid(), SIGINT);
        auto f = got.get_future();
        ASSERT_EQ(f.wait_for(30s), std::future_status::ready);
    }
    SUCCEED() << "still running after the watcher restored the signal mask";
}

TEST(StopSignalWatcherTest, DestructionWithoutSignalDoesNotCallStop) {
    bool called = false;
    {
        vemo::StopSignalWatcher watcher([&called](int) { called = true; });
    }
    EXPECT_FALSE(called);
}

}  // namespace
