#include "ipc/ServiceHost.h"

#include <mutex>

#include "ipc/BinderServiceHost.h"

namespace vemo {
namespace ipc {

namespace {
std::mutex instanceMutex;  // guards instance
std::shared_ptr<ServiceHost> instance;
}  // namespace

std::shared_ptr<ServiceHost> ServiceHost::getInstance() {
    std::lock_guard<std::mutex> lock(instanceMutex);
    if (!instance) {
        instance = std::make_shared<BinderServiceHost>();
    }
    return instance;
}

}  // namespace ipc
}  // namespace vemo
