#include "ipc/BpFlgrCallback.h"

#include <binder/Parcel.h>

namespace vemo {
namespace ipc {

using android::binder::Status;

BpFlgrCallback::BpFlgrCallback(const android::sp<android::IBinder>& remote)
    : android::BpInterface<IFlgrCallback>(remote) {}

Status BpFlgrCallback::onResults(const PFlgrResponse& response) {
    Status status = Status::ok();
    android::Parcel data;
    android::Parcel reply;
    android::status_t result = data.writeInterfaceToken(IFlgrCallback::descriptor);
    if (result == android::OK) {
        result = data.writeParcelable(response);
    }
    if (result == android::OK) {
        result = remote()->transact(ON_RESULTS, data, &reply, 0);
    }
    if (result == android::OK) {
        result = status.readFromParcel(reply);
    }
    if (result != android::OK) {
        status.setFromStatusT(result);
    }
    return status;
}

}  // namespace ipc
}  // namespace vemo
