#pragma once
// The device's MAP token, fetched from the device information service on
// every call (never cached, so a re-registered device uploads with its new
// token). Stateless; callable from any thread.

#include <string>

#include "fact/upload/IUploadApiAuthenticator.h"

namespace fact {

class MapAuthenticator : public IUploadApiAuthenticator {
  public:
    // Throws std::runtime_error("Error in getting MAP token") when the device
    // information service has no token.
    std::string getAuthToken() override;
};

}  // namespace fact
