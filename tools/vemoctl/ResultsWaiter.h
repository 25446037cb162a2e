#pragma once
// The IFlgrCallback vemoctl passes with a gradient-file request: it records
// the onResults call (which arrives on a binder thread) and lets the command
// wait for it with a bound.
//
// Thread-safe: onResults and waitForResults may run on different threads.

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "ipc/BnFlgrCallback.h"

namespace vemo {
namespace ctl {

class ResultsWaiter : public ipc::BnFlgrCallback {
  public:
    android::binder::Status onResults(const ipc::PFlgrResponse& response) override;

    // True once onResults has been called, false when the bound passed first;
    // *status is the response's status.
    bool waitForResults(std::chrono::milliseconds bound, VemoStatus* status);

  private:
    std::mutex mutex_;  // guards received_ and status_
    std::condition_variable cond_;
    bool received_ = false;
    VemoStatus status_ = kVemoStatusOk;
};

}  // namespace ctl
}  // namespace vemo
