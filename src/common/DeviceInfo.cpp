#include "common/DeviceInfo.h"

#include <mutex>

#include "common/DeviceInfoImpl.h"

namespace vemo {
namespace {
std::mutex instanceMutex;
std::shared_ptr<DeviceInfo> instance;  // guarded by instanceMutex
}  // namespace

std::shared_ptr<DeviceInfo> DeviceInfo::getImpl() {
    std::lock_guard<std::mutex> lock(instanceMutex);
    if (!instance) {
        instance = std::make_shared<DeviceInfoImpl>();
    }
    return instance;
}

}  // namespace vemo
