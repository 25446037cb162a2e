#include "ipc/BnFlgrCallback.h"

namespace vemo {
namespace ipc {

using android::binder::Status;

android::status_t BnFlgrCallback::onTransact(uint32_t code, const android::Parcel& data,
                                             android::Parcel* reply, uint32_t flags) {
    android::status_t result = android::OK;
    if (code == ON_RESULTS) {
        if (!data.checkInterface(this)) {
            result = android::BAD_TYPE;
        } else {
            PFlgrResponse response;
            result = data.readParcelable(&response);
            if (result == android::OK) {
                result = onResults(response).writeToParcel(reply);
            }
        }
    } else {
        result = android::BBinder::onTransact(code, data, reply, flags);
    }
    if (result == android::UNEXPECTED_NULL) {
        result = Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply);
    }
    return result;
}

}  // namespace ipc
}  // namespace vemo
