#include "TempDeviceRoot.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/DeviceRoot.h"

namespace vemo {
namespace test {

void removeTree(const std::string& path) {
    nftw(
        path.c_str(),
        [](const char* p, const struct stat*, int, struct FTW*) { return std::remove(p); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

TempDeviceRoot::TempDeviceRoot() : previousRoot_(platform::deviceRoot()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string templ =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vemo-root-XXXXXX";
    if (mkdtemp(&templ[0]) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + templ);
    }
    root_ = templ;
    platform::setDeviceRoot(root_);
}

TempDeviceRoot::~TempDeviceRoot() {
    platform::setDeviceRoot(previousRoot_);
    removeTree(root_);
}

std::string TempDeviceRoot::path(const std::string& devicePath) const {
    return root_ + devicePath;
}

void TempDeviceRoot::writeFile(const std::string& devicePath, const std::string& contents) const {
    const std::string host = path(devicePath);
    if (!platform::makeParentDirectories(host)) {
        throw std::runtime_error("cannot create directories for " + host);
    }
    std::ofstream out(host, std::ios::binary | std::ios::trunc);
    out << contents;
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + host);
    }
}

std::string TempDeviceRoot::readFile(const std::string& devicePath) const {
    return readHostFile(path(devicePath));
}

std::string readHostFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool TempDeviceRoot::exists(const std::string& devicePath) const {
    return access(path(devicePath).c_str(), F_OK) == 0;
}

void TempDeviceRoot::writeBuildProps(const std::map<std::string, std::string>& props) const {
    std::string text;
    for (const auto& kv : props) {
        text += kv.first + "=" + kv.second + "\n";
    }
    writeFile("/system/build.prop", text);
}

void TempDeviceRoot::provision(int registrationState, const std::string& accessToken) const {
    writeFile("/data/pellux/provisioning",
              "registration_state=" + std::to_string(registrationState) +
                  "\naccess_token=" + accessToken + "\n");
}

}  // namespace test
}  // namespace vemo
