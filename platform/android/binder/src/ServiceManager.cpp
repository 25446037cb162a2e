#include <binder/IServiceManager.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

#include <android/log.h>
#include <binder/Parcel.h>
#include <platform/DeviceRoot.h>

#include "Transport.h"
#include "TrustedPath.h"

namespace android {

namespace {

constexpr const char* kTag = "ServiceManager";
constexpr size_t kMaxNameLength = 127;

// One registry entry: the publishing process's socket, the node, the flags.
struct Entry {
    std::string path;
    uint64_t node = 0;
    int dumpFlags = 0;
};

std::string registryDir() {
    return vemo::platform::devicePath("/dev/socket/binder/services");
}

bool validName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxNameLength && name.find('/') == std::string::npos &&
           name != "." && name != ".." && name[0] != '.';
}

std::string binderDir() {
    return vemo::platform::devicePath("/dev/socket/binder");
}

// Reads an entry that this user (or root) wrote and no one else may change:
// a regular file, not a link, in a directory of the same kind, naming a
// socket of this user directly in the canonical binder directory.
bool readEntry(const std::string& file, Entry* entry) {
    if (!hostbinder::isPrivateDirectory(binderDir()) ||
        !hostbinder::isPrivateDirectory(registryDir())) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Ignoring %s: registry not private",
                            file.c_str());
        return false;
    }
    const int fd = open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ELOOP) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "Ignoring %s: a link", file.c_str());
        }
        return false;
    }
    struct stat st {};
    char buffer[512];
    ssize_t size = -1;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && hostbinder::isPrivate(st)) {
        size = read(fd, buffer, sizeof buffer - 1);
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Ignoring %s: not a private file",
                            file.c_str());
    }
    close(fd);
    if (size <= 0) {
        return false;
    }
    std::istringstream in(std::string(buffer, static_cast<size_t>(size)));
    std::string magic;
    if (!std::getline(in, magic) || magic != "binder-service 1") {
        return false;
    }
    if (!std::getline(in, entry->path) || entry->path.empty() ||
        entry->path.size() > hostbinder::kMaxPathLength) {
        return false;
    }
    if (!hostbinder::isTrustedSocket(entry->path, hostbinder::canonicalPath(binderDir()))) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Ignoring %s: %s is not a socket of this user in %s", file.c_str(),
                            entry->path.c_str(), binderDir().c_str());
        return false;
    }
    std::string line;
    if (!std::getline(in, line)) {
        return false;
    }
    std::istringstream nodeIn(line);
    if (!(nodeIn >> entry->node) || entry->node == 0) {
        return false;
    }
    if (!std::getline(in, line)) {
        return false;
    }
    std::istringstream flagsIn(line);
    return static_cast<bool>(flagsIn >> entry->dumpFlags);
}

// The service manager of this host: a local object over the registry
// directory of the current device root (see IServiceManager.h).
class HostServiceManager : public BnInterface<IServiceManager> {
  public:
    sp<IBinder> getService(const String16& name) const override {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (int attempt = 0;; ++attempt) {
            sp<IBinder> svc = checkService(name);
            if (svc != nullptr || std::chrono::steady_clock::now() >= deadline) {
                return svc;
            }
            if (attempt % 10 == 0) {
                __android_log_print(ANDROID_LOG_INFO, kTag, "Waiting for service '%s'...",
                                    String8(name).string());
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    sp<IBinder> checkService(const String16& name) const override {
        const std::string n(String8(name).string());
        if (!validName(n)) {
            return nullptr;
        }
        Entry entry;
        if (!readEntry(registryDir() + "/" + n, &entry)) {
            return nullptr;
        }
        const sp<IBinder> binder =
            hostbinder::Transport::instance().resolve(entry.path, entry.node);
        if (binder == nullptr || binder->localBinder() != nullptr) {
            return binder;
        }
        // A process that died leaves its entry behind: report it absent.
        if (binder->pingBinder() != NO_ERROR) {
            return nullptr;
        }
        return binder;
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int dumpsysFlags) override {
        const std::string n(String8(name).string());
        if (!validName(n) || service == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "add_service('%s') refused", n.c_str());
            return PERMISSION_DENIED;
        }
        Entry entry;
        entry.dumpFlags = dumpsysFlags;
        status_t err = hostbinder::Transport::instance().publish(service, &entry.path, &entry.node);
        if (err != OK) {
            return err;
        }
        const std::string dir = registryDir();
        const std::string file = dir + "/" + n;
        if (!hostbinder::ensurePrivateDirectory(binderDir()) ||
            !hostbinder::ensurePrivateDirectory(dir)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "add_service('%s'): %s is not private to this user", n.c_str(),
                                dir.c_str());
            return NO_INIT;
        }
        // Written aside (a dot name, never listed) and renamed, so a reader
        // never sees half an entry; readable by all, writable by this user.
        const std::string tmp =
            dir + "/." + n + ".tmp." + std::to_string(getpid()) + "." +
            std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()));
        {
            const std::string text = "binder-service 1\n" + entry.path + "\n" +
                                     std::to_string(entry.node) + "\n" +
                                     std::to_string(entry.dumpFlags) + "\n";
            const int fd =
                open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
            const bool written =
                fd >= 0 && fchmod(fd, 0644) == 0 &&
                write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
            if (fd >= 0) {
                close(fd);
            }
            if (!written) {
                unlink(tmp.c_str());
                return NO_INIT;
            }
        }
        if (rename(tmp.c_str(), file.c_str()) != 0) {
            unlink(tmp.c_str());
            return NO_INIT;
        }
        return NO_ERROR;
    }

    Vector<String16> listServices(int dumpsysFlags) override {
        std::vector<std::string> names;
        const std::string dir = registryDir();
        DIR* const d = opendir(dir.c_str());
        if (d != nullptr) {
            while (const dirent* e = readdir(d)) {
                const std::string n(e->d_name);
                Entry entry;
                if (validName(n) && readEntry(dir + "/" + n, &entry) &&
                    (entry.dumpFlags & dumpsysFlags) != 0) {
                    names.push_back(n);
                }
            }
            closedir(d);
        }
        std::sort(names.begin(), names.end());
        Vector<String16> result;
        for (const auto& n : names) {
            const String16 name(n.c_str());
            if (checkService(name) != nullptr) {
                result.add(name);
            }
        }
        return result;
    }
};

}  // namespace

const String16 IServiceManager::descriptor("android.os.IServiceManager");

const String16& IServiceManager::getInterfaceDescriptor() const {
    return IServiceManager::descriptor;
}

sp<IServiceManager> IServiceManager::asInterface(const sp<IBinder>& obj) {
    // The host service manager is always local; there is no proxy class.
    if (obj == nullptr) {
        return nullptr;
    }
    return static_cast<IServiceManager*>(
        obj->queryLocalInterface(IServiceManager::descriptor).get());
}

IServiceManager::IServiceManager() = default;
IServiceManager::~IServiceManager() = default;

sp<IServiceManager> defaultServiceManager() {
    static const sp<IServiceManager>* const sManager =
        new sp<IServiceManager>(new HostServiceManager());
    return *sManager;
}

}  // namespace android
