#include "ipc/IFlgrService.h"

#include "ipc/BpFlgrService.h"

namespace vemo {
namespace ipc {

const android::String16 IFlgrService::descriptor("vemo.ipc.IFlgrService");

android::sp<IFlgrService> IFlgrService::asInterface(const android::sp<android::IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    android::sp<IFlgrService> local =
        static_cast<IFlgrService*>(binder->queryLocalInterface(descriptor).get());
    if (local != nullptr) {
        return local;
    }
    return new BpFlgrService(binder);
}

const android::String16& IFlgrService::getInterfaceDescriptor() const {
    return descriptor;
}

}  // namespace ipc
}  // namespace vemo
