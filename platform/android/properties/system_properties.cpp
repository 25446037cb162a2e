#include <sys/system_properties.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>

#include "platform/DeviceRoot.h"

namespace {

const char kBuildProp[] = "/system/build.prop";
const char kPersistProp[] = "/data/property/persist.prop";

// Serialises writers of the persist file against readers in this process.
std::mutex& fileMutex() {
    static std::mutex m;
    return m;
}

std::string trim(const std::string& s) {
    const char* ws = " \t\r\n";
    const std::string::size_type b = s.find_first_not_of(ws);
    if (b == std::string::npos) {
        return "";
    }
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

// Reads "key=value" lines into `out`; later lines replace earlier ones.
void readFile(const std::string& hostPath, std::map<std::string, std::string>& out) {
    std::ifstream in(hostPath);
    std::string line;
    while (in && std::getline(in, line)) {
        const std::string t = trim(line);
        if (t.empty() || t[0] == '#') {
            continue;
        }
        const std::string::size_type eq = t.find('=');
        if (eq == std::string::npos) {
            continue;
        }
        const std::string key = trim(t.substr(0, eq));
        if (key.empty()) {
            continue;
        }
        out[key] = trim(t.substr(eq + 1));
    }
}

std::map<std::string, std::string> readAll() {
    std::map<std::string, std::string> props;
    readFile(vemo::platform::devicePath(kBuildProp), props);
    readFile(vemo::platform::devicePath(kPersistProp), props);
    return props;
}

bool validName(const char* name) {
    if (name == nullptr || *name == '\0') {
        return false;
    }
    for (const char* p = name; *p != '\0'; ++p) {
        if (*p == '=' || *p == '\n' || *p == '\r' || *p == ' ') {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int __system_property_get(const char* name, char* value) {
    if (value == nullptr) {
        return 0;
    }
    value[0] = '\0';
    if (!validName(name)) {
        return 0;
    }
    std::map<std::string, std::string> props;
    {
        std::lock_guard<std::mutex> lock(fileMutex());
        props = readAll();
    }
    const auto it = props.find(name);
    if (it == props.end()) {
        return 0;
    }
    const size_t n = std::min<size_t>(it->second.size(), PROP_VALUE_MAX - 1);
    std::memcpy(value, it->second.data(), n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int __system_property_set(const char* name, const char* value) {
    if (!validName(name) || value == nullptr || std::strlen(value) >= PROP_VALUE_MAX ||
        std::strpbrk(value, "\r\n") != nullptr) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(fileMutex());
    const std::string path = vemo::platform::devicePath(kPersistProp);
    std::map<std::string, std::string> persisted;
    readFile(path, persisted);
    persisted[name] = value;
    if (!vemo::platform::makeParentDirectories(path)) {
        return -1;
    }
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc);
        for (const auto& kv : persisted) {
            out << kv.first << '=' << kv.second << '\n';
        }
        if (!out.flush()) {
            return -1;
        }
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0 ? 0 : -1;
}
