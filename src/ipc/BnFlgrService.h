#pragma once
// Server side of IFlgrService: unmarshals the two transactions and calls the
// implementation's flgrRequest / factRequest on the binder thread that
// received them. Other codes (3 and above, the binder's own system codes) get
// the default binder handling.
//
// Refusals, as the transaction's status_t: a wrong interface token BAD_TYPE,
// a bad request parcel its read status, a null callback UNKNOWN_ERROR; in
// those cases nothing is called. A missing request (presence flag 0) is
// answered with an EX_NULL_POINTER status in the reply.

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "ipc/IFlgrService.h"

namespace vemo {
namespace ipc {

class BnFlgrService : public android::BnInterface<IFlgrService> {
  public:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace ipc
}  // namespace vemo
