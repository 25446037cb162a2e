#pragma once
// Where vemoctl finds services: the seam between the command logic and the
// binder service manager, so the logic can be driven in-process by tests.

#include <binder/IBinder.h>

#include <string>
#include <vector>

namespace vemo {
namespace ctl {

class ServiceDirectory {
  public:
    virtual ~ServiceDirectory() = default;
    // The published service, or empty when no service has that name.
    virtual android::sp<android::IBinder> find(const std::string& name) = 0;
    // The names of all published services.
    virtual std::vector<std::string> list() = 0;
};

}  // namespace ctl
}  // namespace vemo
