#include "platform/DeviceRoot.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace vemo {
namespace platform {
namespace {

std::mutex& rootMutex() {
    static std::mutex m;
    return m;
}

// Guarded by rootMutex(); read from the environment the first time.
std::string& rootStorage() {
    static std::string root = [] {
        const char* env = std::getenv("VEMO_DEVICE_ROOT");
        return std::string(env != nullptr ? env : "");
    }();
    return root;
}

std::atomic<unsigned long> gVersion{0};

std::string normalise(std::string root) {
    while (root.size() > 1 && root.back() == '/') {
        root.pop_back();
    }
    return root.empty() ? std::string("/") : root;
}

}  // namespace

std::string deviceRoot() {
    std::lock_guard<std::mutex> lock(rootMutex());
    return normalise(rootStorage());
}

void setDeviceRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(rootMutex());
    rootStorage() = root;
    gVersion.fetch_add(1, std::memory_order_release);
}

unsigned long deviceRootVersion() {
    return gVersion.load(std::memory_order_acquire);
}

std::string devicePath(const std::string& absolutePath) {
    if (absolutePath.empty() || absolutePath[0] != '/') {
        return absolutePath;
    }
    const std::string root = deviceRoot();
    return root == "/" ? absolutePath : root + absolutePath;
}

bool makeParentDirectories(const std::string& hostPath) {
    const std::string::size_type slash = hostPath.find_last_of('/');
    if (slash == std::string::npos || slash == 0) {
        return true;
    }
    const std::string parent = hostPath.substr(0, slash);
    for (std::string::size_type pos = 1; pos <= parent.size(); ++pos) {
        if (pos == parent.size() || parent[pos] == '/') {
            const std::string prefix = parent.substr(0, pos);
            if (::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace platform
}  // namespace vemo
