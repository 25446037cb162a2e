#include "ipc/PFlgrResponse.h"

#include <utility>

namespace vemo {
namespace ipc {

PFlgrResponse::PFlgrResponse(std::shared_ptr<FlgrFileResponse> response)
    : response_(std::move(response)) {}

android::status_t PFlgrResponse::writeToParcel(android::Parcel* /*parcel*/) const {
    return android::OK;
}

android::status_t PFlgrResponse::readFromParcel(const android::Parcel* /*parcel*/) {
    response_ = std::make_shared<FlgrFileResponse>(kVemoStatusOk, nullptr, nullptr);
    return android::OK;
}

}  // namespace ipc
}  // namespace vemo
