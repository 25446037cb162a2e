#include "ipc/BnFlgrService.h"

namespace vemo {
namespace ipc {

using android::binder::Status;

android::status_t BnFlgrService::onTransact(uint32_t code, const android::Parcel& data,
                                            android::Parcel* reply, uint32_t flags) {
    android::status_t result = android::OK;
    switch (code) {
        case FLGR_REQUEST: {
            if (!data.checkInterface(this)) {
                result = android::BAD_TYPE;
                break;
            }
            PFlgrRequest request;
            result = data.readParcelable(&request);
            if (result != android::OK) {
                break;
            }
            // A null binder reads fine; it is refused below as "no callback".
            android::sp<android::IBinder> binder;
            result = data.readNullableStrongBinder(&binder);
            if (result != android::OK) {
                break;
            }
            const android::sp<IFlgrCallback> callback = IFlgrCallback::asInterface(binder);
            if (callback == nullptr) {
                result = android::UNKNOWN_ERROR;
                break;
            }
            result = flgrRequest(request, callback).writeToParcel(reply);
            break;
        }
        case FACT_REQUEST: {
            if (!data.checkInterface(this)) {
                result = android::BAD_TYPE;
                break;
            }
            PFactRequest request;
            result = data.readParcelable(&request);
            if (result != android::OK) {
                break;
            }
            result = factRequest(request).writeToParcel(reply);
            break;
        }
        default:
            result = android::BBinder::onTransact(code, data, reply, flags);
            break;
    }
    if (result == android::UNEXPECTED_NULL) {
        result = Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply);
    }
    return result;
}

}  // namespace ipc
}  // namespace vemo
