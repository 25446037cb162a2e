#include "TrustedPath.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <platform/DeviceRoot.h>

namespace android {
namespace hostbinder {

std::string canonicalPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) == nullptr ? std::string() : std::string(resolved);
}

bool isPrivate(const struct stat& st) {
    return (st.st_uid == geteuid() || st.st_uid == 0) && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isPrivateDirectory(const std::string& dir) {
    struct stat st {};
    return lstat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && isPrivate(st);
}

bool ensurePrivateDirectory(const std::string& dir) {
    if (!vemo::platform::makeParentDirectories(dir + "/")) {
        return false;
    }
    struct stat st {};
    if (lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return false;
    }
    // A umask that leaves group write on would make the directory refused.
    if (st.st_uid == geteuid() && (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        chmod(dir.c_str(), st.st_mode & 07755);
    }
    return isPrivateDirectory(dir);
}

bool isTrustedSocket(const std::string& path, const std::string& canonicalDir) {
    if (canonicalDir.empty() || path.size() <= canonicalDir.size() + 1 ||
        path.compare(0, canonicalDir.size(), canonicalDir) != 0 ||
        path[canonicalDir.size()] != '/') {
        return false;
    }
    const std::string name = path.substr(canonicalDir.size() + 1);
    if (name.find('/') != std::string::npos || name == "." || name == "..") {
        return false;
    }
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) && isPrivate(st);
}

}  // namespace hostbinder
}  // namespace android
