#pragma once
// The binder object behind the daemon's IFlgrService: turns each request into
// a call on the connector, on the binder thread that received it, and
// reports the connector's non-zero status as a service-specific error
// ("UnknownError"). Without a connector every request is answered 121
// "ServerNotReady"; a gradient-file request whose JSON could not be read is
// answered 122 "InvalidRequest" without calling the connector.
//
// Internal to the service host (tests use it directly). Adds no locking: the
// connector must be thread-safe. The completion handed to the connector keeps
// the client's callback alive until the completion is destroyed.

#include <memory>

#include "ipc/BnFlgrService.h"
#include "ipc/ServiceConnector.h"

namespace vemo {
namespace ipc {

class NativeService : public BnFlgrService {
  public:
    explicit NativeService(std::shared_ptr<ServiceConnector> connector);

    android::binder::Status flgrRequest(const PFlgrRequest& request,
                                        const android::sp<IFlgrCallback>& callback) override;
    android::binder::Status factRequest(const PFactRequest& request) override;

  private:
    const std::shared_ptr<ServiceConnector> connector_;
};

}  // namespace ipc
}  // namespace vemo
