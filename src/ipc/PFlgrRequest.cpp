#include "ipc/PFlgrRequest.h"

#include <utility>

#include "common/VemoLogger.h"

namespace vemo {
namespace ipc {

namespace {
const VemoLogger logger("PFlgrRequest");
}  // namespace

PFlgrRequest::PFlgrRequest(std::string clientName, std::shared_ptr<FlgrFileRequest> params)
    : params_(std::move(params)), clientName_(std::move(clientName)) {}

android::status_t PFlgrRequest::writeToParcel(android::Parcel* parcel) const {
    android::status_t status = parcel->writeCString(clientName_.c_str());
    if (status != android::OK) {
        return status;
    }
    const std::string json = params_ ? params_->toJson() : std::string();
    logger.d("%s:Writing to parcel", "writeToParcel");
    return parcel->writeCString(json.c_str());
}

android::status_t PFlgrRequest::readFromParcel(const android::Parcel* parcel) {
    logger.d("%s:Reading from parcel", "readFromParcel");
    const char* clientName = parcel->readCString();
    const char* json = clientName ? parcel->readCString() : nullptr;
    if (json == nullptr) {
        logger.e("%s:Parcel ends before the %s, status=%d", "readFromParcel",
                 clientName ? "request" : "client name", android::BAD_VALUE);
        return android::BAD_VALUE;
    }
    clientName_ = clientName;
    params_ = FlgrFileRequest::fromJson(json);
    return android::OK;
}

}  // namespace ipc
}  // namespace vemo
