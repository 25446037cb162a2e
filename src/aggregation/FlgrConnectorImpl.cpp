#include "aggregation/FlgrConnectorImpl.h"

#include <exception>

#include "aggregation/VemoManager.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace {
const VemoLogger logger("ManagerConnectorImpl");
}

FlgrConnectorImpl::FlgrConnectorImpl(std::shared_ptr<FactManager> factManager)
    : factManager_(std::move(factManager)) {}

VemoStatus FlgrConnectorImpl::flgrRequest(const std::string& client,
                                          const ipc::FlgrFileRequest& request, FlgrDone done) {
    logger.w("%s:handling request from client '%s'", "flgrRequest", client.c_str());
    int status = 0;
    try {
        status = VemoManager::getInstance().flgrRequest(client, request);
    } catch (const std::exception& e) {
        // The binder thread that called is no place for an exception to end.
        logger.e("%s:Gradient request failed: %s", "flgrRequest", e.what());
        status = kVemoStatusRequestRejected;
    }
    if (status != 0) {
        return kVemoStatusRequestRejected;
    }
    logger.i("%s:Call callback", "flgrRequest");
    done(kVemoStatusOk, nullptr, nullptr);
    return kVemoStatusOk;
}

VemoStatus FlgrConnectorImpl::factRequest(const std::string& client,
                                          const std::string& dataProducer,
                                          const std::string& payload) {
    logger.d("%s:Handling request from client '%s' and data producer '%s'", "factRequest",
             client.c_str(), dataProducer.c_str());
    return factManager_->factRequest(client, dataProducer, payload);
}

VemoStatus FlgrConnectorImpl::registerResetCb(std::function<void()>) {
    return kVemoStatusOk;
}

}  // namespace vemo
