#pragma once
// The callback a client passes with each gradient-file request; the daemon
// calls onResults once the request has completed. The daemon holds only the
// proxy side (BpFlgrCallback); clients implement BnFlgrCallback.
//
// Descriptor "vemo.ipc.IFlgrCallback"; transaction 1 is onResults, whose data
// is the interface token and a PFlgrResponse (a presence flag and no fields).
// Calls may arrive on any binder thread.

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <utils/String16.h>

#include "ipc/PFlgrResponse.h"

namespace vemo {
namespace ipc {

class IFlgrCallback : public android::IInterface {
  public:
    enum : uint32_t {
        ON_RESULTS = android::IBinder::FIRST_CALL_TRANSACTION + 0,
    };

    static const android::String16 descriptor;

    // The local object when the binder is one of this process's callbacks,
    // else a new BpFlgrCallback over it; empty for an empty binder.
    static android::sp<IFlgrCallback> asInterface(const android::sp<android::IBinder>& binder);

    virtual const android::String16& getInterfaceDescriptor() const;

    virtual android::binder::Status onResults(const PFlgrResponse& response) = 0;
};

}  // namespace ipc
}  // namespace vemo
