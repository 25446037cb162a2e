#pragma once
// Parcelable handed to the client's IFlgrCallback::onResults. Its wire form is
// empty on purpose (existing clients rely on it): the callback transaction is
// itself the completion signal, and the result stays inside the daemon. A
// response read from a parcel is therefore always status 0 with no context
// and no results.
//
// Not synchronised: one thread fills or reads an instance at a time.

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

#include <memory>

#include "ipc/FlgrFileResponse.h"

namespace vemo {
namespace ipc {

class PFlgrResponse : public android::Parcelable {
  public:
    PFlgrResponse() = default;
    explicit PFlgrResponse(std::shared_ptr<FlgrFileResponse> response);

    // Writes nothing; OK.
    android::status_t writeToParcel(android::Parcel* parcel) const override;
    // Reads nothing; replaces the response with status 0 and empty pointers.
    android::status_t readFromParcel(const android::Parcel* parcel) override;

    std::shared_ptr<FlgrFileResponse> getResponse() const { return response_; }

  private:
    std::shared_ptr<FlgrFileResponse> response_;
};

}  // namespace ipc
}  // namespace vemo
