#include "ReleaseQueue.h"

#include <pthread.h>

#include <thread>

#include <android/log.h>

namespace android {
namespace hostbinder {

namespace {
constexpr const char* kTag = "HostBinder";
}

constexpr size_t ReleaseQueue::kMaxPending;

ReleaseQueue::ReleaseQueue(Sender sender) : mSender(std::move(sender)) {}

bool ReleaseQueue::post(const std::string& path, uint64_t node, uint64_t count) {
    bool start = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto& nodes = mPending[path];
        auto it = nodes.find(node);
        if (it == nodes.end()) {
            if (mPairs >= kMaxPending) {
                if (nodes.empty()) {
                    mPending.erase(path);
                }
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Too many release notices pending, dropping one for %s",
                                    path.c_str());
                return false;
            }
            it = nodes.emplace(node, 0).first;
            ++mPairs;
        }
        it->second += count;
        start = !mStarted;
        mStarted = true;
    }
    if (start) {
        std::thread([this] { run(); }).detach();
    } else {
        mWake.notify_one();
    }
    return true;
}

void ReleaseQueue::run() {
    pthread_setname_np(pthread_self(), "binder:release");
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mWake.wait(lock, [this] { return !mPending.empty(); });
        const auto first = mPending.begin();
        const std::string path = first->first;
        const std::vector<std::pair<uint64_t, uint64_t>> releases(first->second.begin(),
                                                                  first->second.end());
        mPairs -= releases.size();
        mPending.erase(first);
        lock.unlock();
        const status_t err = mSender(path, releases);
        if (err != OK && err != DEAD_OBJECT) {  // a dead owner needs no release
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Dropping %zu release notices for %s (error %d)", releases.size(),
                                path.c_str(), err);
        }
        lock.lock();
    }
}

}  // namespace hostbinder
}  // namespace android
