#pragma once
// Proxy of a client's IFlgrCallback, held by the daemon for each gradient-file
// request. onResults is a two-way call: the calling thread waits for the
// client's reply (or for the transport to report the client dead).
//
// Thread-safe: a proxy may be called from any thread.

#include <binder/IInterface.h>

#include "ipc/IFlgrCallback.h"

namespace vemo {
namespace ipc {

class BpFlgrCallback : public android::BpInterface<IFlgrCallback> {
  public:
    explicit BpFlgrCallback(const android::sp<android::IBinder>& remote);

    // The client's Status, or one made from the transport or parcel failure
    // (DEAD_OBJECT when the client has gone).
    android::binder::Status onResults(const PFlgrResponse& response) override;
};

}  // namespace ipc
}  // namespace vemo
