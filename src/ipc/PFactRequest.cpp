#include "ipc/PFactRequest.h"

#include <utility>

#include "common/VemoLogger.h"

namespace vemo {
namespace ipc {

namespace {
const VemoLogger logger("PFactRequest");
}  // namespace

PFactRequest::PFactRequest(std::string clientName, std::string dataProducer, std::string message)
    : message_(std::move(message)),
      dataProducer_(std::move(dataProducer)),
      clientName_(std::move(clientName)) {}

android::status_t PFactRequest::writeToParcel(android::Parcel* parcel) const {
    logger.d("%s:Writing to parcel", "writeToParcel");
    for (const std::string* field : {&clientName_, &dataProducer_, &message_}) {
        const android::status_t status = parcel->writeCString(field->c_str());
        if (status != android::OK) {
            return status;
        }
    }
    return android::OK;
}

android::status_t PFactRequest::readFromParcel(const android::Parcel* parcel) {
    logger.d("%s:Reading from parcel", "readFromParcel");
    static const char* const kNames[] = {"client name", "data producer", "message"};
    const char* values[3] = {};
    for (int k = 0; k < 3; ++k) {
        values[k] = parcel->readCString();
        if (values[k] == nullptr) {
            logger.e("%s:Parcel ends before the %s, status=%d", "readFromParcel", kNames[k],
                     android::BAD_VALUE);
            return android::BAD_VALUE;
        }
    }
    clientName_ = values[0];
    dataProducer_ = values[1];
    message_ = values[2];
    return android::OK;
}

}  // namespace ipc
}  // namespace vemo
