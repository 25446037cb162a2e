#pragma once
// Delivers masked results on a thread of the core's own, so that no result
// callback ever runs inside the caller's vemoHandleMask (which may hold
// locks the callback needs). Results are delivered in the order pushed.
//
// Destruction delivers what was already pushed, then joins the thread: after
// it returns nothing more is delivered. It must not run on the delivery
// thread itself. `lock_` guards the queue and the stop flag.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "secagg/Types.h"

namespace vemocore {

struct MaskedResult {
    secagg::Kind kind = secagg::Kind::Integral;
    // Integral: the masked vector. FLGR: the masked words, little-endian.
    std::vector<uint32_t> words;
    std::vector<uint8_t> blob;
    std::string name;
    std::string secondName;
    std::string cohortId;
};

class ResultQueue {
  public:
    // Throws std::system_error when the thread cannot start.
    explicit ResultQueue(std::function<void(const MaskedResult&)> deliver);
    ~ResultQueue();
    ResultQueue(const ResultQueue&) = delete;
    ResultQueue& operator=(const ResultQueue&) = delete;

    void push(MaskedResult result);
    bool onDeliveryThread() const;

  private:
    void run();

    const std::function<void(const MaskedResult&)> deliver_;
    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<MaskedResult> queue_;  // guarded by lock_
    bool stopping_ = false;           // guarded by lock_
    std::thread thread_;
};

}  // namespace vemocore
