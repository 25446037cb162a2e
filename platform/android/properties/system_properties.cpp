#include <sys/stat.h>
#include <sys/system_properties.h>

#include <ctime>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "platform/DeviceRoot.h"

namespace {

const char kBuildProp[] = "/system/build.prop";
const char kPersistProp[] = "/data/property/persist.prop";

// Serialises writers of the persist file against readers in this process,
// and guards the parsed-file cache.
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

using PropertyMap = std::map<std::string, std::string>;

// One property file as last parsed. Parsing both files on every get made a
// property read cost tens of microseconds, so a parse is reused while the
// file's identity, size and modification time are unchanged. A file modified
// shortly before it was parsed is parsed again on every call (its timestamp
// may not yet tell a later write apart, timestamps being coarse), so a change
// is still seen on the very next call.
struct ParsedFile {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec parsedAt{};
    PropertyMap values;
};

constexpr long kRacyWindowNs = 100L * 1000 * 1000;

long long toNs(const timespec& t) {
    return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

// Guarded by fileMutex(); keyed by host path, since the device root may change.
std::map<std::string, ParsedFile>& parsedFiles() {
    static std::map<std::string, ParsedFile> files;
    return files;
}

// The values of one file, parsed again only when it may have changed.
// Needs fileMutex().
const PropertyMap& currentValues(const std::string& hostPath) {
    static const PropertyMap kEmpty;
    auto& files = parsedFiles();
    struct stat st {};
    if (::stat(hostPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        files.erase(hostPath);
        return kEmpty;
    }
    auto it = files.find(hostPath);
    if (it != files.end()) {
        const ParsedFile& f = it->second;
        const bool same = f.device == st.st_dev && f.inode == st.st_ino && f.size == st.st_size &&
                          toNs(f.modified) == toNs(st.st_mtim);
        if (same && toNs(st.st_mtim) + kRacyWindowNs < toNs(f.parsedAt)) {
            return f.values;
        }
    }
    if (files.size() > 64) {
        files.clear();  // roots of finished tests or devices; keep the cache small
    }
    ParsedFile& f = files[hostPath];
    clock_gettime(CLOCK_REALTIME, &f.parsedAt);
    f.device = st.st_dev;
    f.inode = st.st_ino;
    f.size = st.st_size;
    f.modified = st.st_mtim;
    f.values.clear();
    readFile(hostPath, f.values);
    return f.values;
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
    std::lock_guard<std::mutex> lock(fileMutex());
    // Persisted values win over build values.
    const PropertyMap& persisted = currentValues(vemo::platform::devicePath(kPersistProp));
    auto it = persisted.find(name);
    if (it == persisted.end()) {
        const PropertyMap& build = currentValues(vemo::platform::devicePath(kBuildProp));
        it = build.find(name);
        if (it == build.end()) {
            return 0;
        }
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
