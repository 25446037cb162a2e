#pragma once
// The daemon's binder service, published under its descriptor
// "vemo.ipc.IFlgrService". Clients submit gradient-file requests (answered
// later through their IFlgrCallback) and FACT analytics messages.
//
// Transactions: 1 flgrRequest (token, PFlgrRequest with presence flag, strong
// binder of the callback), 2 factRequest (token, PFactRequest with presence
// flag); the reply of both is a binder::Status. Errors of the service's own
// logic are service-specific errors carrying the daemon's status numbers.
// The daemon implements BnFlgrService; clients call through BpFlgrService.

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <utils/String16.h>

#include "ipc/IFlgrCallback.h"
#include "ipc/PFactRequest.h"
#include "ipc/PFlgrRequest.h"

namespace vemo {
namespace ipc {

class IFlgrService : public android::IInterface {
  public:
    enum : uint32_t {
        FLGR_REQUEST = android::IBinder::FIRST_CALL_TRANSACTION + 0,
        FACT_REQUEST = android::IBinder::FIRST_CALL_TRANSACTION + 1,
    };

    static const android::String16 descriptor;

    // The local service when the binder lives in this process, else a new
    // BpFlgrService over it; empty for an empty binder.
    static android::sp<IFlgrService> asInterface(const android::sp<android::IBinder>& binder);

    virtual const android::String16& getInterfaceDescriptor() const;

    virtual android::binder::Status flgrRequest(const PFlgrRequest& request,
                                                const android::sp<IFlgrCallback>& callback) = 0;
    virtual android::binder::Status factRequest(const PFactRequest& request) = 0;
};

}  // namespace ipc
}  // namespace vemo
