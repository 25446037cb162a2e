#pragma once
// Client side of IFlgrCallback: a client derives from it and implements
// onResults, which runs on one of the client's binder threads (the client
// must have started its thread pool). A wrong interface token is refused with
// BAD_TYPE; other codes get the default binder handling.

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "ipc/IFlgrCallback.h"

namespace vemo {
namespace ipc {

class BnFlgrCallback : public android::BnInterface<IFlgrCallback> {
  public:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace ipc
}  // namespace vemo
