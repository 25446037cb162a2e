#include "ResultQueue.h"

#include <utility>

namespace vemocore {

ResultQueue::ResultQueue(std::function<void(const MaskedResult&)> deliver)
    : deliver_(std::move(deliver)), thread_(&ResultQueue::run, this) {}

ResultQueue::~ResultQueue() {
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void ResultQueue::push(MaskedResult result) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        queue_.push_back(std::move(result));
    }
    wake_.notify_one();
}

bool ResultQueue::onDeliveryThread() const {
    return std::this_thread::get_id() == thread_.get_id();
}

void ResultQueue::run() {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        wake_.wait(guard, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) {
            return;
        }
        MaskedResult result = std::move(queue_.front());
        queue_.pop_front();
        // Callbacks run unlocked, so they may call back into the core.
        guard.unlock();
        deliver_(result);
        guard.lock();
    }
}

}  // namespace vemocore
