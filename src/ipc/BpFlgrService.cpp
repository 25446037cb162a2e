#include "ipc/BpFlgrService.h"

#include <binder/Parcel.h>

namespace vemo {
namespace ipc {

using android::binder::Status;

namespace {

// The reply's Status, or one made from the first transport or parcel failure.
Status transactAndReadStatus(android::IBinder* remote, uint32_t code, const android::Parcel& data) {
    android::Parcel reply;
    Status status;
    android::status_t result = remote->transact(code, data, &reply);
    if (result == android::OK) {
        result = status.readFromParcel(reply);
    }
    if (result != android::OK) {
        status.setFromStatusT(result);
    }
    return status;
}

}  // namespace

BpFlgrService::BpFlgrService(const android::sp<android::IBinder>& remote)
    : android::BpInterface<IFlgrService>(remote) {}

Status BpFlgrService::flgrRequest(const PFlgrRequest& request,
                                  const android::sp<IFlgrCallback>& callback) {
    android::Parcel data;
    android::status_t result = data.writeInterfaceToken(IFlgrService::descriptor);
    if (result == android::OK) {
        result = data.writeParcelable(request);
    }
    if (result == android::OK) {
        result = data.writeStrongBinder(android::IInterface::asBinder(callback));
    }
    if (result != android::OK) {
        return Status::fromStatusT(result);
    }
    return transactAndReadStatus(remote(), FLGR_REQUEST, data);
}

Status BpFlgrService::factRequest(const PFactRequest& request) {
    android::Parcel data;
    android::status_t result = data.writeInterfaceToken(IFlgrService::descriptor);
    if (result == android::OK) {
        result = data.writeParcelable(request);
    }
    if (result != android::OK) {
        return Status::fromStatusT(result);
    }
    return transactAndReadStatus(remote(), FACT_REQUEST, data);
}

}  // namespace ipc
}  // namespace vemo
