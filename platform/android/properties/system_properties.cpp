#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/system_properties.h>
#include <unistd.h>

#include <ctime>

#include <algorithm>
#include <cerrno>
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

// One property file as last parsed, checked by its identity, size and
// modification time. Used for a file whose directory cannot be watched: a
// file modified shortly before it was parsed is parsed again on every call
// (its timestamp may not yet tell a later write apart, timestamps being
// coarse), so a change is still seen on the very next call.
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

// The values of one unwatched file, parsed again only when it may have
// changed. Needs fileMutex().
const PropertyMap& statCheckedValues(const std::string& hostPath) {
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

// The two property files of the current root, kept parsed in memory. The
// device reads properties from shared memory, and the system re-reads them on
// every call; a stat of both files per call made each read cost
// microseconds. Instead the files' directories are watched with inotify, and
// each call drains the (non-blocking) descriptor once: the kernel queues an
// event before a write or rename returns, so any change made before a call
// marks the file stale for that call. While a file's directory does not
// exist, its deepest existing ancestor is watched for the directory to
// appear. Without inotify (no instance left) each call falls back to a stat
// of the files.
class PropertyFiles {
  public:
    enum Which { kPersist = 0, kBuild = 1 };

    PropertyFiles() : mFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        // Asking an epoll set whether the descriptor is readable costs less
        // than a read that finds nothing (no lock is taken while nothing is
        // ready), and the kernel marks it ready before a write returns.
        if (mFd >= 0) {
            mReady = epoll_create1(EPOLL_CLOEXEC);
            epoll_event interest{};
            interest.events = EPOLLIN;
            if (mReady >= 0 && epoll_ctl(mReady, EPOLL_CTL_ADD, mFd, &interest) != 0) {
                ::close(mReady);
                mReady = -1;
            }
        }
    }

    // Needs fileMutex(). Valid until the next call.
    const PropertyMap& values(Which which) {
        File& f = mFiles[which];
        if (mFd < 0) {
            return statCheckedValues(f.path);
        }
        if (f.wd < 0) {
            if (f.ancestorWd >= 0 && !f.retry) {
                return kEmpty;  // nothing appeared under the ancestor since the last try
            }
            if (!watch(f)) {
                return f.ancestorWd >= 0 ? kEmpty : statCheckedValues(f.path);
            }
        }
        if (f.stale) {
            f.values.clear();
            readFile(f.path, f.values);
            f.stale = false;
        }
        return f.values;
    }

    // Needs fileMutex(). Follows a change of device root, then takes in
    // what the kernel reported since the last call.
    void refresh() {
        // The version is read before the root: a root set in between only
        // makes the next call look again.
        const unsigned long version = vemo::platform::deviceRootVersion();
        if (version == mRootVersion && !mRoot.empty()) {
            drainEvents();
            return;
        }
        mRootVersion = version;
        std::string root = vemo::platform::deviceRoot();
        if (root != mRoot) {
            for (File& f : mFiles) {
                unwatch(f);
            }
            mRoot = std::move(root);
            setPath(mFiles[kPersist], kPersistProp);
            setPath(mFiles[kBuild], kBuildProp);
        }
        drainEvents();
    }

    // Needs fileMutex(). For writes of this process.
    void markStale(Which which) {
        mFiles[which].stale = true;
        mFiles[which].retry = true;
    }

  private:
    struct File {
        std::string path;
        std::string dir;
        std::string name;
        // The directory's watch, or -1.
        int wd = -1;
        // While the directory is missing: the watch of its deepest existing
        // ancestor, or -1.
        int ancestorWd = -1;
        bool stale = true;
        // Something appeared under the ancestor: try the directory again.
        bool retry = true;
        PropertyMap values;
    };

    static constexpr uint32_t kDirMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE |
                                         IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF |
                                         IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD;
    static constexpr uint32_t kAncestorMask =
        IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD;

    static std::string parentOf(const std::string& path) {
        const std::string::size_type slash = path.find_last_of('/');
        return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
    }

    void setPath(File& f, const char* devicePath) {
        f.path = vemo::platform::devicePath(devicePath);
        f.dir = parentOf(f.path);
        f.name = f.path.substr(f.path.find_last_of('/') + 1);
        f.stale = true;
        f.retry = true;
    }

    // Watches before parsing, so that no change can fall between the two.
    // False while the directory is missing (an ancestor is then watched) or
    // cannot be watched at all.
    bool watch(File& f) {
        f.retry = false;
        for (int attempts = 0; attempts < 64; ++attempts) {
            f.wd = inotify_add_watch(mFd, f.dir.c_str(), kDirMask);
            if (f.wd >= 0) {
                dropAncestor(f);
                f.stale = true;
                return true;
            }
            if (errno != ENOENT && errno != ENOTDIR) {
                dropAncestor(f);
                return false;
            }
            std::string ancestor = parentOf(f.dir);
            int wd = -1;
            while ((wd = inotify_add_watch(mFd, ancestor.c_str(), kAncestorMask)) < 0 &&
                   (errno == ENOENT || errno == ENOTDIR) && ancestor != "/") {
                ancestor = parentOf(ancestor);
            }
            if (wd < 0) {
                dropAncestor(f);
                return false;
            }
            if (wd != f.ancestorWd) {
                dropAncestor(f);
                f.ancestorWd = wd;
            }
            // Something made between the failed try and this watch would
            // have no event: look once more before relying on the watch.
            const std::string child = childToward(ancestor, f.dir);
            struct stat st {};
            if (::stat(child.c_str(), &st) != 0) {
                return false;
            }
        }
        return false;
    }

    // The entry of `ancestor` on the way to `dir`.
    static std::string childToward(const std::string& ancestor, const std::string& dir) {
        const std::string::size_type from = ancestor == "/" ? 1 : ancestor.size() + 1;
        const std::string::size_type end = dir.find('/', from);
        return dir.substr(0, end);
    }

    bool sharedByOther(const File& f, int wd) const {
        for (const File& other : mFiles) {
            if (&other != &f && (other.wd == wd || other.ancestorWd == wd)) {
                return true;
            }
        }
        return false;
    }

    void dropAncestor(File& f) {
        if (f.ancestorWd >= 0 && !sharedByOther(f, f.ancestorWd)) {
            inotify_rm_watch(mFd, f.ancestorWd);
        }
        f.ancestorWd = -1;
    }

    void unwatch(File& f) {
        if (f.wd >= 0 && !sharedByOther(f, f.wd)) {
            inotify_rm_watch(mFd, f.wd);
        }
        f.wd = -1;
        dropAncestor(f);
        f.values.clear();
        f.stale = true;
        f.retry = true;
    }

    void drainEvents() {
        if (mFd < 0) {
            return;
        }
        epoll_event ready{};
        if (mReady >= 0 && epoll_wait(mReady, &ready, 1, 0) == 0) {
            return;
        }
        alignas(inotify_event) char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(mFd, buffer, sizeof buffer);
            if (n <= 0) {
                return;  // EAGAIN: nothing more happened
            }
            for (ssize_t at = 0; at < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                take(*event);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }

    void take(const inotify_event& event) {
        const bool gone = (event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0;
        for (File& f : mFiles) {
            if ((event.mask & IN_Q_OVERFLOW) != 0) {
                f.stale = true;
                f.retry = true;
            } else if (event.wd == f.wd) {
                if (gone) {
                    // The directory itself went away: watch again next call.
                    f.wd = -1;
                    f.values.clear();
                    f.stale = true;
                    f.retry = true;
                } else if (event.len == 0 || f.name == event.name) {
                    f.stale = true;
                }
            } else if (event.wd == f.ancestorWd) {
                if (gone) {
                    f.ancestorWd = -1;
                }
                f.retry = true;
            }
        }
    }

    static const PropertyMap kEmpty;
    const int mFd;
    // An epoll set holding mFd, or -1 (then every call reads mFd).
    int mReady = -1;
    unsigned long mRootVersion = 0;
    std::string mRoot;
    File mFiles[2];
};

const PropertyMap PropertyFiles::kEmpty;

// Guarded by fileMutex().
PropertyFiles& propertyFiles() {
    static PropertyFiles files;
    return files;
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
    PropertyFiles& files = propertyFiles();
    files.refresh();
    // Persisted values win over build values.
    const PropertyMap& persisted = files.values(PropertyFiles::kPersist);
    auto it = persisted.find(name);
    if (it == persisted.end()) {
        const PropertyMap& build = files.values(PropertyFiles::kBuild);
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
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        return -1;
    }
    propertyFiles().markStale(PropertyFiles::kPersist);
    return 0;
}
