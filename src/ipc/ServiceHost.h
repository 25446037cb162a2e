#pragma once
// The host that publishes the daemon's IPC service. One instance per process,
// created on first use; the daemon's start-up starts it once with the
// connector that will receive the requests.
//
// getInstance() is thread-safe and every caller gets the same object.

#include <memory>

#include "daemon/VemoStatus.h"
#include "ipc/ServiceConnector.h"

namespace vemo {
namespace ipc {

class ServiceHost {
  public:
    virtual ~ServiceHost() = default;

    // Publishes the service with the connector (which may be empty: requests
    // are then answered "ServerNotReady"). 0 on success, 6 when the service
    // could not be published. Meant to be called once.
    virtual VemoStatus start(std::shared_ptr<ServiceConnector> connector) = 0;

    // The process's host, a BinderServiceHost.
    static std::shared_ptr<ServiceHost> getInstance();
};

}  // namespace ipc
}  // namespace vemo
