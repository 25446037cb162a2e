#pragma once
// Parcelable of a gradient-file request: the calling client's name, then the
// FlgrFileRequest as its JSON text, each a NUL-terminated string. A JSON text
// that cannot be read is not a parcel error: it leaves params empty, and the
// service answers such a request with its own error.
//
// Not synchronised: one thread fills or reads an instance at a time.

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

#include <memory>
#include <string>

#include "ipc/FlgrFileRequest.h"

namespace vemo {
namespace ipc {

class PFlgrRequest : public android::Parcelable {
  public:
    PFlgrRequest() = default;
    PFlgrRequest(std::string clientName, std::shared_ptr<FlgrFileRequest> params);

    // Writes clientName, then the params' JSON text (an empty text when params
    // is empty); the status of the first failing write.
    android::status_t writeToParcel(android::Parcel* parcel) const override;
    // OK, or BAD_VALUE when the parcel ends before both strings.
    android::status_t readFromParcel(const android::Parcel* parcel) override;

    std::shared_ptr<FlgrFileRequest> getParams() const { return params_; }
    std::string getClientName() const { return clientName_; }

  private:
    std::shared_ptr<FlgrFileRequest> params_;
    std::string clientName_;
};

}  // namespace ipc
}  // namespace vemo
