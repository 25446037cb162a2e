#include "ipc/BinderServiceHost.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String8.h>

#include <utility>

#include "common/VemoLogger.h"
#include "ipc/NativeService.h"

namespace vemo {
namespace ipc {

namespace {
const VemoLogger logger("FlgrBinderHost");
constexpr int kDumpFlagPriorityDefault = 8;
}  // namespace

VemoStatus BinderServiceHost::start(std::shared_ptr<ServiceConnector> connector) {
    const android::sp<NativeService> service = new NativeService(std::move(connector));
    const android::String16 name = service->getInterfaceDescriptor();
    const android::String8 name8(name);
    android::ProcessState::self()->startThreadPool();
    const android::status_t result = android::defaultServiceManager()->addService(
        name, service, false, kDumpFlagPriorityDefault);
    if (result != android::OK) {
        logger.e("%s:addServiceFailed, descriptor=%s, status=%d", "start", name8.string(), result);
        return kVemoStatusSetupFailure;
    }
    logger.i("%s:addedBinderService, descriptor=%s", "start", name8.string());
    return kVemoStatusOk;
}

}  // namespace ipc
}  // namespace vemo
