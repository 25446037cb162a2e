#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <future>

#include "daemon/StopSignalWatcher.h"

namespace {

using namespace std::chrono_literals;

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
