#pragma once
// The in-process outcome of a gradient-file request: the daemon's status and
// the aggregation core's result context and results (either may be empty).
// PFlgrResponse carries it to the client's callback; none of it goes on the
// wire.
//
// Plain value; the shared pointers are copied, never dereferenced here.

#include <memory>
#include <utility>

#include "daemon/VemoStatus.h"
#include "vemocore/FlgrResultTypes.h"

namespace vemo {
namespace ipc {

class FlgrFileResponse {
  public:
    FlgrFileResponse(VemoStatus status, std::shared_ptr<FlgrResultContext> context,
                     std::shared_ptr<FlgrResults> results)
        : status_(status), context_(std::move(context)), results_(std::move(results)) {}

    VemoStatus getStatus() const { return status_; }
    std::shared_ptr<FlgrResultContext> getContext() const { return context_; }
    std::shared_ptr<FlgrResults> getResults() const { return results_; }

  private:
    VemoStatus status_;
    std::shared_ptr<FlgrResultContext> context_;
    std::shared_ptr<FlgrResults> results_;
};

}  // namespace ipc
}  // namespace vemo
