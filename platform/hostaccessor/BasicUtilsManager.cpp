#include "pellux/managers/BasicUtilsManager.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <map>
#include <thread>

#include "platform/DeviceRoot.h"

namespace com {
namespace nimbel {
namespace pellux {
namespace managers {
namespace {

enum class ReadResult { kOk, kMissing, kMalformed };

ReadResult readProvisioning(std::map<std::string, std::string>& out) {
    std::ifstream in(BasicUtilsManager::provisioningPath());
    if (!in) {
        return ReadResult::kMissing;
    }
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const std::string::size_type eq = line.find('=');
        if (eq == std::string::npos || eq == 0) {
            return ReadResult::kMalformed;
        }
        out[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return in.bad() ? ReadResult::kMalformed : ReadResult::kOk;
}

}  // namespace

BasicUtilsManager* BasicUtilsManager::getManager() {
    static BasicUtilsManager manager;
    return &manager;
}

std::string BasicUtilsManager::provisioningPath() {
    return vemo::platform::devicePath("/data/pellux/provisioning");
}

int BasicUtilsManager::init(int waitMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    for (;;) {
        std::map<std::string, std::string> values;
        switch (readProvisioning(values)) {
            case ReadResult::kOk:
                return OK;
            case ReadResult::kMalformed:
                return ERR_MALFORMED;
            case ReadResult::kMissing:
                break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return ERR_NOT_PROVISIONED;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int BasicUtilsManager::getRegistrationState(BasicUtilsManager* manager) {
    std::map<std::string, std::string> values;
    if (manager == nullptr || readProvisioning(values) != ReadResult::kOk) {
        return 0;
    }
    const auto it = values.find("registration_state");
    if (it == values.end() || it->second.empty()) {
        return 0;
    }
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(it->second.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < INT_MIN || v > INT_MAX) {
        return 0;
    }
    return static_cast<int>(v);
}

int BasicUtilsManager::getAccessToken(BasicUtilsManager* manager, std::string& token) {
    if (manager == nullptr) {
        return ERR_NO_MANAGER;
    }
    std::map<std::string, std::string> values;
    switch (readProvisioning(values)) {
        case ReadResult::kMissing:
            return ERR_NOT_PROVISIONED;
        case ReadResult::kMalformed:
            return ERR_MALFORMED;
        case ReadResult::kOk:
            break;
    }
    const auto it = values.find("access_token");
    if (it == values.end() || it->second.empty()) {
        return ERR_NO_TOKEN;
    }
    token = it->second;
    return OK;
}

}  // namespace managers
}  // namespace pellux
}  // namespace nimbel
}  // namespace com
