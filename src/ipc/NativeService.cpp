#include "ipc/NativeService.h"

#include <utils/String8.h>

#include <utility>

#include "common/VemoLogger.h"
#include "ipc/IpcStatus.h"

namespace vemo {
namespace ipc {

using android::binder::Status;

namespace {

const VemoLogger logger("FlgrBinderHost");

Status serviceError(VemoStatus code, const char* message) {
    return Status::fromServiceSpecificError(code, android::String8(message));
}

}  // namespace

NativeService::NativeService(std::shared_ptr<ServiceConnector> connector)
    : connector_(std::move(connector)) {}

Status NativeService::flgrRequest(const PFlgrRequest& request,
                                  const android::sp<IFlgrCallback>& callback) {
    if (!connector_) {
        logger.e("%s:ServiceDelegateIsNull", "flgrRequest");
        return serviceError(kServerNotReady, kServerNotReadyMessage);
    }
    const std::shared_ptr<FlgrFileRequest> params = request.getParams();
    if (!params) {
        logger.e("%s:InvalidRequest, code=%d", "flgrRequest", kInvalidRequest);
        return serviceError(kInvalidRequest, kInvalidRequestMessage);
    }
    const FlgrFileRequest fileRequest(params->getFilePath(), params->getApplicationId(),
                                      params->getMetadata(), params->getScaleValue());
    const std::string client = request.getClientName();
    // The client's answer is not needed: a client that has gone away simply
    // misses its completion.
    ServiceConnector::FlgrDone done = [callback](VemoStatus status,
                                                 std::shared_ptr<FlgrResultContext> context,
                                                 std::shared_ptr<FlgrResults> results) {
        const PFlgrResponse response(
            std::make_shared<FlgrFileResponse>(status, std::move(context), std::move(results)));
        callback->onResults(response);
    };
    const VemoStatus status = connector_->flgrRequest(client, fileRequest, std::move(done));
    if (status != kVemoStatusOk) {
        logger.e("%s:ServiceDelegateError, code=%d", "flgrRequest", status);
        return serviceError(status, kUnknownErrorMessage);
    }
    return Status::ok();
}

Status NativeService::factRequest(const PFactRequest& request) {
    if (!connector_) {
        logger.e("%s:ServiceDelegateIsNull", "factRequest");
        return serviceError(kServerNotReady, kServerNotReadyMessage);
    }
    const VemoStatus status = connector_->factRequest(
        request.getClientName(), request.getDataProducer(), request.getMessage());
    if (status != kVemoStatusOk) {
        logger.e("%s:ServiceDelegateError, code=%d", "factRequest", status);
        return serviceError(status, kUnknownErrorMessage);
    }
    return Status::ok();
}

}  // namespace ipc
}  // namespace vemo
