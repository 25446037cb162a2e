#pragma once
// Client-side proxy of IFlgrService, used by tools and tests (the daemon only
// serves). Each call is a two-way transaction; transport and parcel failures
// come back as a Status made from the status_t (EX_TRANSACTION_FAILED),
// otherwise the Status the service wrote.
//
// Thread-safe: a proxy may be called from several threads at once.

#include <binder/IInterface.h>

#include "ipc/IFlgrService.h"

namespace vemo {
namespace ipc {

class BpFlgrService : public android::BpInterface<IFlgrService> {
  public:
    explicit BpFlgrService(const android::sp<android::IBinder>& remote);

    android::binder::Status flgrRequest(const PFlgrRequest& request,
                                        const android::sp<IFlgrCallback>& callback) override;
    android::binder::Status factRequest(const PFactRequest& request) override;
};

}  // namespace ipc
}  // namespace vemo
