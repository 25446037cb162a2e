#include "BinderServiceDirectory.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace vemo {
namespace ctl {

BinderServiceDirectory::BinderServiceDirectory() {
    android::ProcessState::self()->startThreadPool();
}

android::sp<android::IBinder> BinderServiceDirectory::find(const std::string& name) {
    // checkService does not wait for a service that may never come.
    return android::defaultServiceManager()->checkService(android::String16(name.c_str()));
}

std::vector<std::string> BinderServiceDirectory::list() {
    std::vector<std::string> names;
    for (const android::String16& name : android::defaultServiceManager()->listServices()) {
        names.emplace_back(android::String8(name).string());
    }
    return names;
}

}  // namespace ctl
}  // namespace vemo
