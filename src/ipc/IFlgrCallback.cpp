#include "ipc/IFlgrCallback.h"

#include "ipc/BpFlgrCallback.h"

namespace vemo {
namespace ipc {

const android::String16 IFlgrCallback::descriptor("vemo.ipc.IFlgrCallback");

android::sp<IFlgrCallback> IFlgrCallback::asInterface(const android::sp<android::IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    android::sp<IFlgrCallback> local =
        static_cast<IFlgrCallback*>(binder->queryLocalInterface(descriptor).get());
    if (local != nullptr) {
        return local;
    }
    return new BpFlgrCallback(binder);
}

const android::String16& IFlgrCallback::getInterfaceDescriptor() const {
    return descriptor;
}

}  // namespace ipc
}  // namespace vemo
