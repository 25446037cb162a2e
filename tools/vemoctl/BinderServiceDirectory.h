#pragma once
// ServiceDirectory over the device's binder service manager (the device root
// decides which device). Constructing one starts this process's binder thread
// pool, so that callbacks passed to services (IFlgrCallback) can be called.

#include "ServiceDirectory.h"

namespace vemo {
namespace ctl {

class BinderServiceDirectory : public ServiceDirectory {
  public:
    BinderServiceDirectory();
    android::sp<android::IBinder> find(const std::string& name) override;
    std::vector<std::string> list() override;
};

}  // namespace ctl
}  // namespace vemo
