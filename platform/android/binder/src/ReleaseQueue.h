#pragma once
// Release notices waiting to go to the processes that own the objects. A
// proxy's last reference can drop on any thread, a pool thread serving
// someone else included, and a peer whose socket does not accept must not
// hold that thread: notices are queued here and sent by one thread of their
// own. Notices for one socket are merged (node -> count) and sent together.
//
// Bounded: at most kMaxPending (socket, node) pairs wait. A notice beyond
// that, or one whose socket cannot be reached within the sender's own
// bounds, is dropped with a warning; its owner then keeps that object until
// it exits, which costs only the peer that does not listen.
//
// Thread-safe. The sending thread starts with the first notice and lives as
// long as the process (the transport is never destroyed).

#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <utils/Errors.h>

namespace android {
namespace hostbinder {

class ReleaseQueue {
  public:
    static constexpr size_t kMaxPending = 4096;

    // Sends (node, count) releases to the process listening on `path`.
    using Sender = std::function<status_t(const std::string& path,
                                          const std::vector<std::pair<uint64_t, uint64_t>>&)>;

    explicit ReleaseQueue(Sender sender);
    ReleaseQueue(const ReleaseQueue&) = delete;
    ReleaseQueue& operator=(const ReleaseQueue&) = delete;

    // Queues `count` releases of `node` for `path`; false when dropped.
    bool post(const std::string& path, uint64_t node, uint64_t count);

  private:
    void run();

    const Sender mSender;
    std::mutex mLock;  // guards mPending, mPairs and mStarted
    std::condition_variable mWake;
    std::map<std::string, std::map<uint64_t, uint64_t>> mPending;
    size_t mPairs = 0;
    bool mStarted = false;
};

}  // namespace hostbinder
}  // namespace android
