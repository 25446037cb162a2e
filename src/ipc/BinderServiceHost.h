#pragma once
// ServiceHost over Android binder: start() creates the service object
// (NativeService) around the connector, starts the process's binder thread
// pool and registers the service with the service manager under its
// descriptor, "vemo.ipc.IFlgrService". The host keeps no reference: the
// service manager's keeps the service, and through it the connector, alive.
//
// No state of its own; start() is meant to be called once (a second call
// registers a second service object under the same name).

#include <memory>

#include "ipc/ServiceHost.h"

namespace vemo {
namespace ipc {

class BinderServiceHost : public ServiceHost {
  public:
    VemoStatus start(std::shared_ptr<ServiceConnector> connector) override;
};

}  // namespace ipc
}  // namespace vemo
