#pragma once
// Parcelable of a FACT analytics message: the calling client's name, the
// sending data producer and the message, each a NUL-terminated string. The
// message's meaning depends on the data producer (a campaign path, an ECS
// event document, ...). A string cannot carry a NUL byte: it ends there.
//
// Not synchronised: one thread fills or reads an instance at a time.

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

#include <string>

namespace vemo {
namespace ipc {

class PFactRequest : public android::Parcelable {
  public:
    PFactRequest() = default;
    PFactRequest(std::string clientName, std::string dataProducer, std::string message);

    // The status of the first failing write.
    android::status_t writeToParcel(android::Parcel* parcel) const override;
    // OK, or BAD_VALUE when the parcel ends before all three strings; the
    // fields are then left unchanged.
    android::status_t readFromParcel(const android::Parcel* parcel) override;

    std::string getMessage() const { return message_; }
    std::string getDataProducer() const { return dataProducer_; }
    std::string getClientName() const { return clientName_; }

  private:
    std::string message_;
    std::string dataProducer_;
    std::string clientName_;
};

}  // namespace ipc
}  // namespace vemo
