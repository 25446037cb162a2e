#pragma once
// Host stand-in for the host-accessor library: the device's registration state
// and its cloud access token.
//
// On a host both come from one provisioning file under the device root,
//   data/pellux/provisioning
// with "key=value" lines: "registration_state=<integer>" and
// "access_token=<text>". The file is re-read on every call, so a test or the
// fleet simulator can re-provision a device while it runs. Thread-safe.

#include <string>

namespace com {
namespace nimbel {
namespace pellux {
namespace managers {

class BasicUtilsManager {
  public:
    // Result codes of init() and getAccessToken().
    enum : int {
        OK = 0,
        ERR_NOT_PROVISIONED = 1,  // no provisioning file appeared within the wait bound
        ERR_MALFORMED = 2,        // the file exists but cannot be read or parsed
        ERR_NO_MANAGER = 3,       // a null manager was passed
        ERR_NO_TOKEN = 4,         // provisioned, but no access token
    };

    // The process-wide manager; never null.
    static BasicUtilsManager* getManager();

    // Connects to the accessor, waiting at most `waitMs` milliseconds for the
    // device to be provisioned. OK on success, an error code otherwise.
    int init(int waitMs);

    // The registration state written by provisioning; 0 (unregistered) when
    // it cannot be read.
    static int getRegistrationState(BasicUtilsManager* manager);

    // The current access token; OK and the token, or an error code and an
    // unchanged `token`.
    static int getAccessToken(BasicUtilsManager* manager, std::string& token);

    // The provisioning file's path under the current device root.
    static std::string provisioningPath();

  private:
    BasicUtilsManager() = default;
};

}  // namespace managers
}  // namespace pellux
}  // namespace nimbel
}  // namespace com
