#include "common/DevicePaths.h"

#include "platform/DeviceRoot.h"

namespace vemo {
namespace paths {

std::string hostPath(const std::string& devicePath) {
    return vemo::platform::devicePath(devicePath);
}

}  // namespace paths
}  // namespace vemo
