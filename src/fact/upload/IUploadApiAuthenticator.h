#pragma once
// Supplies the access token that authenticates an upload. Implementations are
// called from several upload threads at once and must allow that.

#include <string>

namespace fact {

class IUploadApiAuthenticator {
  public:
    virtual ~IUploadApiAuthenticator() = default;

    // The current token; throws (std::runtime_error) when it cannot be had.
    virtual std::string getAuthToken() = 0;
};

}  // namespace fact
