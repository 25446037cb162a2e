// The serving half of the transport: endpoints, the looper and the pool.
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <platform/DeviceRoot.h>

#include "FrameReader.h"
#include "Transport.h"
#include "TrustedPath.h"

namespace android {
namespace hostbinder {

namespace {
constexpr const char* kTag = "HostBinder";
}

struct Transport::Watch {
    enum Type { LISTENER, CONNECTION, DEATH };
    Type type = CONNECTION;
    int fd = -1;
    pid_t pid = 0;
    uid_t uid = 0;
    std::string path;    // DEATH: the watched process's endpoint
    FrameReader reader;  // CONNECTION: bytes received ahead of the frame being served
    // CONNECTION deadlines, read by the reaper: when the last frame was
    // served (or the connection accepted), when the frame now arriving
    // began (0: none), whether a thread is serving it, whether the peer only
    // watches for our exit, and whether it was already shut down.
    std::atomic<int64_t> lastActiveMs{0};
    std::atomic<int64_t> partialSinceMs{0};
    std::atomic<bool> busy{false};
    std::atomic<bool> watchOnly{false};
    std::atomic<bool> reaped{false};
    // Held while the fd is being armed; the thread that takes its event
    // passes through it first, so it never runs ahead of the arming thread's
    // last touch (the kernel alone does not order that for the memory model).
    std::mutex handover;
};

status_t Transport::createEndpoint(const std::string& root, Endpoint* ep) {
    std::lock_guard<std::mutex> createLock(mEndpointCreateLock);
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& existing : mEndpoints) {
            if (existing.root == root) {
                *ep = existing;
                return OK;
            }
        }
    }
    const std::string dir = vemo::platform::devicePath("/dev/socket/binder");
    if (!ensurePrivateDirectory(dir)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Cannot create %s, or another user owns or may write it", dir.c_str());
        return NO_INIT;
    }
    // Peers check that references name sockets of the canonical directory.
    const std::string path = canonicalPath(dir) + "/" + mInstanceTag;
    if (path.size() > kMaxPathLength) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Socket path too long: %s", path.c_str());
        return BAD_VALUE;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return NO_MEMORY;
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());
    // Only this user may connect; the mode is set before anyone can.
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0 ||
        chmod(path.c_str(), 0600) != 0 || listen(fd, 128) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot listen on %s: %s", path.c_str(),
                            strerror(errno));
        close(fd);
        return NO_INIT;
    }
    ensureLooper();
    auto* const w = new Watch();
    w->type = Watch::LISTENER;
    w->fd = fd;
    addWatch(w, true);
    ep->root = root;
    ep->path = path;
    ep->fd = fd;
    std::lock_guard<std::mutex> lock(mLock);
    mEndpoints.push_back(*ep);
    return OK;
}

void Transport::ensureLooper() {
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mPoolLock);
        if (mLooperStarted) {
            return;
        }
        mEpollFd = epoll_create1(EPOLL_CLOEXEC);
        mLooperStarted = true;
        // The pool's threads wait on the fds themselves; one is always there.
        if (mSpawned == 0) {
            ++mSpawned;
            spawn = true;
        }
    }
    if (spawn) {
        std::thread([this] { workerLoop(true); }).detach();
    }
    std::thread([this] { reaperLoop(); }).detach();
}

void Transport::addWatch(Watch* w, bool oneShot) {
    {
        std::lock_guard<std::mutex> lock(mPoolLock);
        mWatches.insert(w);
    }
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP | (oneShot ? EPOLLONESHOT : 0u);
    ev.data.ptr = w;
    std::lock_guard<std::mutex> lock(w->handover);
    epoll_ctl(mEpollFd, EPOLL_CTL_ADD, w->fd, &ev);
}

void Transport::rearm(Watch* w) {
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
    ev.data.ptr = w;
    std::lock_guard<std::mutex> lock(w->handover);
    epoll_ctl(mEpollFd, EPOLL_CTL_MOD, w->fd, &ev);
}

void Transport::closeWatch(Watch* w) {
    {
        // Out of the set before the fd closes: the reaper only touches fds
        // of watches in the set, so never a reused descriptor number.
        std::lock_guard<std::mutex> lock(mPoolLock);
        if (w->type == Watch::CONNECTION) {
            --mConnections;
            const auto it = mConnectionsByPeer.find(w->pid);
            if (it != mConnectionsByPeer.end() && --it->second == 0) {
                mConnectionsByPeer.erase(it);
            }
        }
        mWatches.erase(w);
    }
    epoll_ctl(mEpollFd, EPOLL_CTL_DEL, w->fd, nullptr);
    close(w->fd);
    delete w;
}

bool Transport::evictIdlest() {
    Watch* idlest = nullptr;
    for (Watch* w : mWatches) {
        if (w->type == Watch::CONNECTION && !w->busy && !w->reaped && w->partialSinceMs == 0 &&
            (idlest == nullptr || w->lastActiveMs < idlest->lastActiveMs)) {
            idlest = w;
        }
    }
    if (idlest == nullptr) {
        return false;
    }
    idlest->reaped = true;
    shutdown(idlest->fd, SHUT_RDWR);  // its serving thread sees the end and closes it
    return true;
}

void Transport::reaperLoop() {
    pthread_setname_np(pthread_self(), "binder:reaper");
    for (;;) {
        const int idleMs = mIdleMs.load();
        const int partialMs = mPartialFrameMs.load();
        const int period = std::max(5, std::min(1000, std::min(idleMs, partialMs) / 4));
        std::this_thread::sleep_for(std::chrono::milliseconds(period));
        const int64_t now = monotonicMs();
        std::lock_guard<std::mutex> lock(mPoolLock);
        for (Watch* w : mWatches) {
            if (w->type != Watch::CONNECTION || w->busy || w->reaped) {
                continue;
            }
            const int64_t partialSince = w->partialSinceMs;
            if (partialSince != 0 && now - partialSince > partialMs) {
                if (oncePerSecond(&mLastRefusalLogMs)) {
                    __android_log_print(
                        ANDROID_LOG_WARN, kTag,
                        "Closing connection from pid %d: frame incomplete after %d ms",
                        static_cast<int>(w->pid), partialMs);
                }
            } else if (partialSince != 0 || w->watchOnly || now - w->lastActiveMs <= idleMs) {
                continue;
            }
            w->reaped = true;
            shutdown(w->fd, SHUT_RDWR);
        }
    }
}

void Transport::acceptAll(Watch* listener) {
    for (;;) {
        const int fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            return;  // EAGAIN: drained (or out of descriptors: retried on the next wake)
        }
        ucred cred{};
        socklen_t len = sizeof cred;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 ||
            (cred.uid != getuid() && cred.uid != 0)) {
            close(fd);
            if (oncePerSecond(&mLastRefusalLogMs)) {
                __android_log_print(ANDROID_LOG_WARN, kTag, "Refusing a connection from uid %d",
                                    static_cast<int>(cred.uid));
            }
            continue;
        }
        {
            std::lock_guard<std::mutex> lock(mPoolLock);
            size_t& fromPeer = mConnectionsByPeer[cred.pid];
            if (fromPeer >= kMaxConnectionsPerPeer ||
                (mConnections >= kMaxConnections && !evictIdlest())) {
                if (fromPeer == 0) {
                    mConnectionsByPeer.erase(cred.pid);
                }
                close(fd);
                if (oncePerSecond(&mLastRefusalLogMs)) {
                    __android_log_print(ANDROID_LOG_WARN, kTag,
                                        "Too many connections (from pid %d), refusing one",
                                        static_cast<int>(cred.pid));
                }
                continue;
            }
            ++fromPeer;
            ++mConnections;
        }
        auto* const w = new Watch();
        w->type = Watch::CONNECTION;
        w->fd = fd;
        w->pid = cred.pid;
        w->uid = cred.uid;
        w->lastActiveMs = monotonicMs();
        setSocketTimeouts(fd, kIoTimeoutMs, kIoTimeoutMs);
        addWatch(w, true);
    }
}

void Transport::serveConnection(Watch* conn) {
    // Frames the peer sent back to back (one-way calls) are served in order
    // before the connection is waited on again; a frame that has not fully
    // arrived stays buffered, and the connection is waited on again without
    // holding this thread.
    for (;;) {
        Frame frame;
        const status_t err = conn->reader.readAvailable(conn->fd, &frame);
        if (err == WOULD_BLOCK) {
            if (conn->reader.hasPending() && conn->partialSinceMs == 0) {
                conn->partialSinceMs = monotonicMs();
            }
            break;
        }
        if (err != OK) {
            if (err != DEAD_OBJECT) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Dropping connection from pid %d: bad frame (error %d)",
                                    static_cast<int>(conn->pid), err);
            }
            closeWatch(conn);
            return;
        }
        if (!serveFrame(conn, &frame)) {
            closeWatch(conn);
            return;
        }
        const int64_t now = monotonicMs();
        conn->lastActiveMs = now;
        conn->partialSinceMs = conn->reader.hasPending() ? now : 0;
        // Nothing buffered: epoll (level-triggered) reports bytes that came
        // in meanwhile as soon as the connection is re-armed.
        if (!conn->reader.hasPending()) {
            break;
        }
    }
    conn->busy = false;
    rearm(conn);
}

bool Transport::serveFrame(Watch* conn, Frame* frame) {
    const FrameHeader& h = frame->header;
    if (h.kind == FRAME_RELEASE) {
        releaseHeld(conn->pid, h.target, h.code);
        return true;
    }
    if (h.kind == FRAME_WATCH) {
        conn->watchOnly = true;
        return true;
    }
    if (h.kind == FRAME_ACQUIRE) {
        Frame answer;
        answer.header.kind = FRAME_REPLY;
        // Only a holder may ask, for the process it forwards the reference to.
        answer.header.status = acquireFor(conn->pid, static_cast<pid_t>(h.flags), h.target, h.code)
                                   ? OK
                                   : PERMISSION_DENIED;
        const std::vector<uint8_t> bytes = encodeFrame(&answer);
        return sendAll(conn->fd, bytes.data(), bytes.size()) == OK;
    }
    if (h.kind != FRAME_TRANSACTION) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Unexpected frame kind %u from pid %d", h.kind,
                            static_cast<int>(conn->pid));
        return false;
    }
    const bool oneWay = (h.flags & IBinder::FLAG_ONEWAY) != 0;
    status_t status;
    Parcel reply;
    {
        Parcel data;
        const sp<IBinder> target = lookupNode(h.target);
        if (target == nullptr) {
            releaseFrameRefs(*frame, 0);
            status = DEAD_OBJECT;
        } else if (frameToParcel(frame, &data) != OK) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Invalid object table in a transaction from pid %d",
                                static_cast<int>(conn->pid));
            status = FAILED_TRANSACTION;
        } else {
            IPCThreadState* const self = IPCThreadState::self();
            const int64_t savedIdentity = self->clearCallingIdentity();
            const uint32_t savedFlags = self->getLastTransactionBinderFlags();
            self->setCallingIdentity(conn->pid, conn->uid);
            self->setLastTransactionBinderFlags(h.flags);
            status = target->transact(h.code, data, &reply, h.flags);
            self->setLastTransactionBinderFlags(savedFlags);
            self->restoreCallingIdentity(savedIdentity);
        }
    }
    if (oneWay) {
        return true;
    }
    Frame answer;
    answer.header.kind = FRAME_REPLY;
    Exports exported;
    if (status < 0) {
        answer.header.status = status;
    } else {
        const status_t err = parcelToFrame(reply, &answer, &exported, conn->pid);
        if (err != OK) {
            answer = Frame();
            answer.header.kind = FRAME_REPLY;
            answer.header.status = err;
        }
    }
    const std::vector<uint8_t> bytes = encodeFrame(&answer);
    if (sendAll(conn->fd, bytes.data(), bytes.size()) != OK) {
        undoExports(exported, conn->pid);
        return false;
    }
    return true;
}

void Transport::ensureWaiter() {
    // The thread that took an event is busy until it is served; if no other
    // thread waits on the fds, grow the pool, so a call that waits on a
    // nested call into this process never waits for itself.
    if (mWaiting.load() > 0) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mPoolLock);
        const size_t limit = mMaxThreads > 0 ? mMaxThreads : 1;
        if (mSpawned >= limit) {
            return;
        }
        ++mSpawned;
    }
    std::thread([this] { workerLoop(true); }).detach();
}

void Transport::workerLoop(bool spawned) {
    if (spawned) {
        size_t number;
        {
            std::lock_guard<std::mutex> lock(mPoolLock);
            number = ++mThreadNumber;
        }
        char name[16];
        snprintf(name, sizeof name, "binder:%d_%zX", static_cast<int>(getpid()) % 100000, number);
        pthread_setname_np(pthread_self(), name);
    }
    // Each thread waits on the fds itself and serves what it takes: no hand
    // off between threads. Every fd is armed one-shot, so an event goes to
    // one thread and a connection is served by one thread at a time.
    for (;;) {
        epoll_event event{};
        ++mWaiting;
        const int n = epoll_wait(mEpollFd, &event, 1, -1);
        --mWaiting;
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            __android_log_print(ANDROID_LOG_ERROR, kTag, "epoll_wait failed: %s", strerror(errno));
            if (spawned) {
                std::lock_guard<std::mutex> lock(mPoolLock);
                --mSpawned;
            }
            return;
        }
        if (n == 0) {
            continue;
        }
        auto* const w = static_cast<Watch*>(event.data.ptr);
        { std::lock_guard<std::mutex> handover(w->handover); }
        switch (w->type) {
            case Watch::LISTENER:
                acceptAll(w);
                rearm(w);
                break;
            case Watch::CONNECTION:
                w->busy = true;
                ensureWaiter();
                serveConnection(w);
                break;
            case Watch::DEATH:
                ensureWaiter();
                markPathDead(w->path);
                closeWatch(w);
                break;
        }
    }
}

void Transport::startThreadPool() {
    ensureLooper();
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mPoolLock);
        if (!mPoolStarted) {
            mPoolStarted = true;
            if (mSpawned == 0) {
                ++mSpawned;
                spawn = true;
            }
        }
    }
    if (spawn) {
        std::thread([this] { workerLoop(true); }).detach();
    }
}

void Transport::spawnPooledThread() {
    ensureLooper();
    {
        std::lock_guard<std::mutex> lock(mPoolLock);
        ++mSpawned;
    }
    std::thread([this] { workerLoop(true); }).detach();
}

void Transport::setMaxThreads(size_t maxThreads) {
    std::lock_guard<std::mutex> lock(mPoolLock);
    mMaxThreads = maxThreads;
}

size_t Transport::maxThreads() const {
    std::lock_guard<std::mutex> lock(mPoolLock);
    return mMaxThreads;
}

void Transport::joinThreadPool() {
    ensureLooper();
    workerLoop(false);
}

status_t Transport::watchDeath(int64_t handle) {
    std::string path;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const auto it = mHandles.find(handle);
        if (it == mHandles.end()) {
            return DEAD_OBJECT;
        }
        path = it->second.path;
        if (mWatchedPaths.count(path) != 0) {
            return OK;
        }
    }
    status_t err = OK;
    bool reused = false;
    pid_t peer = 0;
    const int fd = takeConnection(path, &err, &reused, &peer);
    if (fd < 0) {
        if (err == DEAD_OBJECT) {
            markPathDead(path);
        }
        return err;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mWatchedPaths.count(path) != 0) {
            returnConnection(path, fd, peer);
            return OK;
        }
        mWatchedPaths[path] = true;
    }
    // Tell the peer this connection only waits for its exit, or it would be
    // closed as idle (and read here as a death).
    Frame watch;
    watch.header.kind = FRAME_WATCH;
    const std::vector<uint8_t> bytes = encodeFrame(&watch);
    err = sendAll(fd, bytes.data(), bytes.size());
    if (err != OK) {
        close(fd);
        {
            std::lock_guard<std::mutex> lock(mLock);
            mWatchedPaths.erase(path);
        }
        if (err == DEAD_OBJECT) {
            markPathDead(path);
        }
        return err;
    }
    ensureLooper();
    auto* const w = new Watch();
    w->type = Watch::DEATH;
    w->fd = fd;
    w->path = path;
    addWatch(w, true);
    return OK;
}

}  // namespace hostbinder
}  // namespace android
