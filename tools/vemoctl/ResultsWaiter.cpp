#include "ResultsWaiter.h"

namespace vemo {
namespace ctl {

android::binder::Status ResultsWaiter::onResults(const ipc::PFlgrResponse& response) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        received_ = true;
        const auto result = response.getResponse();
        status_ = result ? result->getStatus() : kVemoStatusOk;
    }
    cond_.notify_all();
    return android::binder::Status::ok();
}

bool ResultsWaiter::waitForResults(std::chrono::milliseconds bound, VemoStatus* status) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!cond_.wait_for(lock, bound, [this] { return received_; })) {
        return false;
    }
    *status = status_;
    return true;
}

}  // namespace ctl
}  // namespace vemo
