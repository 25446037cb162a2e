#include "Transport.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <platform/DeviceRoot.h>

#include "FlatBinderObject.h"
#include "FrameReader.h"
#include "TrustedPath.h"

namespace android {
namespace hostbinder {

namespace {

constexpr const char* kTag = "HostBinder";

flat_binder_object readFlat(const uint8_t* p) {
    flat_binder_object obj;
    memcpy(&obj, p, sizeof obj);
    return obj;
}

void writeFlat(uint8_t* p, const flat_binder_object& obj) {
    memcpy(p, &obj, sizeof obj);
}

}  // namespace

Transport& Transport::instance() {
    static Transport* const sInstance = new Transport();
    return *sInstance;
}

Transport::Transport() {
    std::random_device rd;
    char tag[32];
    snprintf(tag, sizeof tag, "%d-%08x", static_cast<int>(getpid()), rd());
    mInstanceTag = tag;
    mPid = getpid();
}

status_t Transport::ownPath(std::string* path) {
    const std::string root = vemo::platform::deviceRoot();
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& ep : mEndpoints) {
            if (ep.root == root) {
                *path = ep.path;
                return OK;
            }
        }
    }
    Endpoint ep;
    const status_t err = createEndpoint(root, &ep);
    if (err != OK) {
        return err;
    }
    *path = ep.path;
    return OK;
}

bool Transport::isOwnPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(mLock);
    for (const auto& ep : mEndpoints) {
        if (ep.path == path) {
            return true;
        }
    }
    return false;
}

bool Transport::isBinderSocketPath(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return false;
    }
    const std::string dir = path.substr(0, slash);
    bool known = dir == canonicalPath(vemo::platform::devicePath("/dev/socket/binder"));
    if (!known) {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& ep : mEndpoints) {
            known = known || ep.path.compare(0, slash + 1, path, 0, slash + 1) == 0;
        }
    }
    // The name itself must be a socket of this user there, not a link out.
    return known && isTrustedSocket(path, dir);
}

uint64_t Transport::exportLocal(const sp<IBinder>& binder, bool pin, pid_t peer) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto it = mNodeByBinder.find(binder.get());
    uint64_t id;
    if (it != mNodeByBinder.end()) {
        id = it->second;
        Node& node = mNodes[id];
        ++node.refs;
        node.pinned = node.pinned || pin;
    } else {
        id = mNextNode++;
        Node& node = mNodes[id];
        node.binder = binder;
        node.refs = 1;
        node.pinned = pin;
        mNodeByBinder[binder.get()] = id;
    }
    if (peer != 0) {
        ++mHeld[std::make_pair(peer, id)];
    }
    return id;
}

uint64_t Transport::debitHeld(pid_t peer, uint64_t node, uint64_t count) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto it = mHeld.find(std::make_pair(peer, node));
    if (it == mHeld.end()) {
        return 0;
    }
    const uint64_t taken = std::min(count, it->second);
    it->second -= taken;
    if (it->second == 0) {
        mHeld.erase(it);
    }
    return taken;
}

void Transport::releaseHeld(pid_t peer, uint64_t node, uint64_t count) {
    const uint64_t held = debitHeld(peer, node, count);
    if (held < count && oncePerSecond(&mLastRefusalLogMs)) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Ignoring %llu releases of node %llu that pid %d does not hold",
                            static_cast<unsigned long long>(count - held),
                            static_cast<unsigned long long>(node), static_cast<int>(peer));
    }
    if (held > 0) {
        releaseNode(node, held);
    }
}

bool Transport::acquireFor(pid_t requester, pid_t beneficiary, uint64_t node, uint64_t count) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto node_it = mNodes.find(node);
    if (node_it == mNodes.end() || mHeld.count(std::make_pair(requester, node)) == 0) {
        return false;
    }
    node_it->second.refs += count;
    mHeld[std::make_pair(beneficiary, node)] += count;
    return true;
}

void Transport::releaseNode(uint64_t nodeId, uint64_t count) {
    sp<IBinder> dropped;  // released after the lock: its destructor may call back
    {
        std::lock_guard<std::mutex> lock(mLock);
        const auto it = mNodes.find(nodeId);
        if (it == mNodes.end()) {
            return;
        }
        Node& node = it->second;
        node.refs = count >= node.refs ? 0 : node.refs - count;
        if (node.refs == 0 && !node.pinned) {
            dropped = node.binder;
            mNodeByBinder.erase(node.binder.get());
            mNodes.erase(it);
        }
    }
}

sp<IBinder> Transport::lookupNode(uint64_t nodeId) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto it = mNodes.find(nodeId);
    return it == mNodes.end() ? nullptr : it->second.binder;
}

void Transport::holdNodes(const std::vector<uint64_t>& nodes) {
    if (nodes.empty()) {
        return;
    }
    std::lock_guard<std::mutex> lock(mLock);
    for (const uint64_t id : nodes) {
        const auto it = mNodes.find(id);
        if (it != mNodes.end()) {
            ++it->second.refs;
        }
    }
}

void Transport::releaseNodes(const std::vector<uint64_t>& nodes) {
    for (const uint64_t node : nodes) {
        releaseNode(node, 1);
    }
}

void Transport::undoExports(const Exports& exports, pid_t peer) {
    for (const uint64_t node : exports.local) {
        releaseHeld(peer, node, 1);
    }
    // References acquired from other owners for `peer` stay counted there:
    // only `peer` could release them. The owner keeps those objects until it
    // exits, on this failure path only.
}

status_t Transport::sendReleases(const std::string& path,
                                 const std::vector<std::pair<uint64_t, uint64_t>>& releases) {
    std::vector<uint8_t> bytes;
    for (const auto& release : releases) {
        // The frame counts 32 bits; larger counts go in several frames.
        for (uint64_t left = release.second; left > 0;) {
            const uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(left, UINT32_MAX));
            Frame frame;
            frame.header.kind = FRAME_RELEASE;
            frame.header.code = count;
            frame.header.target = release.first;
            const std::vector<uint8_t> one = encodeFrame(&frame);
            bytes.insert(bytes.end(), one.begin(), one.end());
            left -= count;
        }
    }
    return sendOneWay(path, bytes);
}

status_t Transport::acquireRemote(const std::string& path, uint64_t node, pid_t beneficiary) {
    Frame frame;
    frame.header.kind = FRAME_ACQUIRE;
    frame.header.code = 1;
    frame.header.flags = static_cast<uint32_t>(beneficiary);
    frame.header.target = node;
    const std::vector<uint8_t> bytes = encodeFrame(&frame);
    status_t err = OK;
    bool reused = false;
    pid_t owner = 0;
    const int fd = takeConnection(path, &err, &reused, &owner);
    if (fd < 0) {
        return err;
    }
    err = sendAll(fd, bytes.data(), bytes.size());
    Frame answer;
    if (err == OK) {
        err = readFrame(fd, &answer);
    }
    if (err != OK || answer.header.kind != FRAME_REPLY) {
        close(fd);
        return err != OK ? err : BAD_VALUE;
    }
    returnConnection(path, fd, owner);
    return answer.header.status;
}

sp<BpBinder> Transport::proxyFor(const std::string& path, uint64_t node, bool counted) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto key = std::make_pair(path, node);
    const auto it = mHandleByRef.find(key);
    if (it != mHandleByRef.end()) {
        HandleEntry& entry = mHandles[it->second];
        sp<BpBinder> proxy = entry.proxy.promote();
        if (proxy != nullptr) {
            entry.counted += counted ? 1 : 0;
            return proxy;
        }
        // That proxy is being destroyed; a fresh one gets a new handle.
    }
    const int64_t handle = mNextHandle++;
    sp<BpBinder> proxy = new BpBinder(handle);
    HandleEntry& entry = mHandles[handle];
    entry.proxy = proxy;
    entry.path = path;
    entry.node = node;
    entry.counted = counted ? 1 : 0;
    mHandleByRef[key] = handle;
    return proxy;
}

void Transport::setNextHandle(int64_t next) {
    std::lock_guard<std::mutex> lock(mLock);
    mNextHandle = next;
}

sp<IBinder> Transport::proxyForHandle(int64_t handle) {
    std::lock_guard<std::mutex> lock(mLock);
    const auto it = mHandles.find(handle);
    if (it == mHandles.end()) {
        return nullptr;
    }
    return it->second.proxy.promote();
}

void Transport::proxyDestroyed(int64_t handle) {
    std::string path;
    uint64_t node = 0;
    uint32_t counted = 0;
    bool lastForPath = true;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const auto it = mHandles.find(handle);
        if (it == mHandles.end()) {
            return;
        }
        path = it->second.path;
        node = it->second.node;
        counted = it->second.counted;
        const auto key = std::make_pair(path, node);
        const auto byRef = mHandleByRef.find(key);
        if (byRef != mHandleByRef.end() && byRef->second == handle) {
            mHandleByRef.erase(byRef);
        }
        mHandles.erase(it);
        for (const auto& kv : mHandles) {
            if (kv.second.path == path) {
                lastForPath = false;
                break;
            }
        }
    }
    if (counted > 0) {
        mReleases.post(path, node, counted);
    }
    if (lastForPath) {
        // Nothing here refers to that process any more: its idle connections
        // would only hold descriptors until it exits.
        dropIdleConnections(path);
    }
}

void Transport::markHandleDead(int64_t handle) {
    const sp<IBinder> proxy = proxyForHandle(handle);
    if (proxy != nullptr && proxy->remoteBinder() != nullptr) {
        proxy->remoteBinder()->sendObituary();
    }
}

void Transport::markPathDead(const std::string& path) {
    std::vector<sp<BpBinder>> proxies;
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (auto& kv : mHandles) {
            if (kv.second.path == path) {
                sp<BpBinder> proxy = kv.second.proxy.promote();
                if (proxy != nullptr) {
                    proxies.push_back(proxy);
                }
            }
        }
        mWatchedPaths.erase(path);
    }
    dropIdleConnections(path);
    for (const auto& proxy : proxies) {
        proxy->sendObituary();
    }
}

status_t Transport::parcelToFrame(const Parcel& parcel, Frame* frame, Exports* exports,
                                  pid_t peer) {
    if (parcel.hasFileDescriptors()) {
        return FDS_NOT_ALLOWED;
    }
    if (parcel.dataSize() > Parcel::kMaxSize || parcel.mObjects.size() > kMaxObjects) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Parcel of %zu bytes and %zu objects is too large to send",
                            parcel.dataSize(), parcel.mObjects.size());
        return FAILED_TRANSACTION;
    }
    frame->data.assign(parcel.data(), parcel.data() + parcel.mDataSize);
    frame->offsets.clear();
    frame->refs.clear();
    for (const binder_size_t off : parcel.mObjects) {
        if (off + sizeof(flat_binder_object) > frame->data.size()) {
            continue;  // truncated away by setDataSize
        }
        flat_binder_object obj = readFlat(frame->data.data() + off);
        ObjectRef ref;
        if (obj.type == BINDER_TYPE_BINDER) {
            const sp<IBinder> local =
                reinterpret_cast<BBinder*>(static_cast<uintptr_t>(obj.cookie));
            const status_t err = ownPath(&ref.path);
            if (err != OK) {
                undoExports(*exports, peer);
                return err;
            }
            ref.node = exportLocal(local, false, peer);
            ref.flags = REF_COUNTED;
            exports->local.push_back(ref.node);
        } else if (obj.type == BINDER_TYPE_HANDLE) {
            bool known = false;
            {
                std::lock_guard<std::mutex> lock(mLock);
                const auto it = mHandles.find(static_cast<int64_t>(obj.binder));
                if (it != mHandles.end()) {
                    known = true;
                    ref.path = it->second.path;
                    ref.node = it->second.node;
                    ref.flags = 0;
                }
            }
            if (!known) {
                undoExports(*exports, peer);
                return BAD_TYPE;
            }
            // Forwarding: the receiver's reference must be counted by the owner.
            if (acquireRemote(ref.path, ref.node, peer) == OK) {
                ref.flags = REF_COUNTED;
                exports->remote.emplace_back(ref.path, ref.node);
            }
        } else {
            undoExports(*exports, peer);
            return BAD_TYPE;
        }
        obj.type = BINDER_TYPE_HANDLE;
        obj.binder = 0;
        obj.handle = static_cast<uint32_t>(frame->refs.size());
        obj.cookie = 0;
        writeFlat(frame->data.data() + off, obj);
        frame->offsets.push_back(static_cast<uint32_t>(off));
        frame->refs.push_back(std::move(ref));
    }
    return OK;
}

void Transport::releaseFrameRefs(const Frame& frame, size_t from) {
    for (size_t i = from; i < frame.refs.size(); ++i) {
        const ObjectRef& ref = frame.refs[i];
        if ((ref.flags & REF_COUNTED) == 0) {
            continue;
        }
        if (isOwnPath(ref.path)) {
            releaseHeld(mPid, ref.node, 1);
        } else if (isBinderSocketPath(ref.path)) {  // never a notice to anywhere else
            mReleases.post(ref.path, ref.node, 1);
        }
    }
}

status_t Transport::frameToParcel(Frame* frame, Parcel* parcel) {
    parcel->freeData();
    // Everything is checked before anything is taken, so that a refused
    // frame can give back every reference it counted for this process.
    for (size_t i = 0; i < frame->offsets.size(); ++i) {
        const flat_binder_object obj = readFlat(frame->data.data() + frame->offsets[i]);
        const ObjectRef& ref = frame->refs[i];
        bool valid = obj.type == BINDER_TYPE_HANDLE && obj.handle == i;
        if (valid && isOwnPath(ref.path)) {
            const sp<IBinder> local = lookupNode(ref.node);
            valid = local != nullptr && local->localBinder() != nullptr;
        } else if (valid && !isBinderSocketPath(ref.path)) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Refusing a reference outside the binder directory: %s",
                                ref.path.c_str());
            valid = false;
        }
        if (!valid) {
            releaseFrameRefs(*frame, 0);
            return BAD_VALUE;
        }
    }
    std::vector<sp<IBinder>> refs;
    for (size_t i = 0; i < frame->offsets.size(); ++i) {
        uint8_t* const p = frame->data.data() + frame->offsets[i];
        flat_binder_object obj = readFlat(p);
        const ObjectRef& ref = frame->refs[i];
        if (isOwnPath(ref.path)) {
            const sp<IBinder> local = lookupNode(ref.node);
            if (local == nullptr || local->localBinder() == nullptr) {
                releaseFrameRefs(*frame, i);  // gone meanwhile; `refs` gives back the rest
                return BAD_VALUE;
            }
            if (ref.flags & REF_COUNTED) {
                // Acquired for this process by whoever forwarded it; no proxy
                // here will release it, and `local` keeps the object.
                releaseHeld(mPid, ref.node, 1);
            }
            BBinder* const bbinder = local->localBinder();
            obj.type = BINDER_TYPE_BINDER;
            obj.binder = reinterpret_cast<uintptr_t>(bbinder->getWeakRefs());
            obj.cookie = reinterpret_cast<uintptr_t>(bbinder);
            refs.push_back(local);
        } else {
            const sp<BpBinder> proxy = proxyFor(ref.path, ref.node, (ref.flags & REF_COUNTED) != 0);
            obj.type = BINDER_TYPE_HANDLE;
            obj.binder = static_cast<uint64_t>(proxy->handle());
            obj.cookie = 0;
            refs.push_back(proxy);
        }
        writeFlat(p, obj);
    }
    parcel->mData.swap(frame->data);
    parcel->mDataSize = parcel->mData.size();
    parcel->mDataPos = 0;
    parcel->mObjects.assign(frame->offsets.begin(), frame->offsets.end());
    parcel->mBinderRefs.swap(refs);
    return OK;
}

void Transport::setLimits(const Limits& limits) {
    mIdleMs = limits.idleMs;
    mPartialFrameMs = limits.partialFrameMs;
    mCallMs = limits.callMs;
}

Transport::Limits Transport::limits() const {
    Limits limits;
    limits.idleMs = mIdleMs.load();
    limits.partialFrameMs = mPartialFrameMs.load();
    limits.callMs = mCallMs.load();
    return limits;
}

int Transport::takeConnection(const std::string& path, status_t* err, bool* reused, pid_t* peer) {
    std::vector<int> stale;
    int fd = -1;
    int callMs = 0;
    {
        // A server closes connections idle for idleMs: a pooled one is used
        // only well before that, so a call never races the server's close.
        const int64_t oldest = monotonicMs() - mIdleMs.load() / 2;
        std::lock_guard<std::mutex> lock(mConnLock);
        auto it = mIdle.find(path);
        while (it != mIdle.end() && !it->second.empty() && fd < 0) {
            const IdleConnection idle = it->second.back();
            it->second.pop_back();
            if (idle.sinceMs >= oldest) {
                fd = idle.fd;
                callMs = idle.callMs;
                if (peer != nullptr) {
                    *peer = idle.pid;
                }
            } else {
                stale.push_back(idle.fd);
            }
        }
    }
    for (const int old : stale) {
        close(old);
    }
    if (fd >= 0) {
        if (callMs != mCallMs.load()) {
            setSocketTimeouts(fd, kIoTimeoutMs, mCallMs.load());
        }
        *reused = true;
        return fd;
    }
    *reused = false;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() > kMaxPathLength) {
        *err = BAD_VALUE;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *err = NO_MEMORY;
        return -1;
    }
    // The send timeout also bounds connect() on a UNIX socket with a full
    // backlog; the receive timeout bounds waiting for a reply.
    setSocketTimeouts(fd, kIoTimeoutMs, mCallMs.load());
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
        const int e = errno;
        close(fd);
        if (e == ECONNREFUSED || e == ENOENT || e == ENOTDIR) {
            *err = DEAD_OBJECT;
        } else if (e == EAGAIN || e == EINPROGRESS || e == ETIMEDOUT) {
            *err = TIMED_OUT;
        } else {
            *err = UNKNOWN_ERROR;
        }
        return -1;
    }
    // Only a process of this user (or root) is trusted with our calls.
    ucred cred{};
    socklen_t len = sizeof cred;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 ||
        (cred.uid != getuid() && cred.uid != 0)) {
        close(fd);
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Refusing %s: served by uid %d", path.c_str(),
                            static_cast<int>(cred.uid));
        *err = PERMISSION_DENIED;
        return -1;
    }
    if (peer != nullptr) {
        *peer = cred.pid;
    }
    return fd;
}

void Transport::returnConnection(const std::string& path, int fd, pid_t peer) {
    {
        std::lock_guard<std::mutex> lock(mConnLock);
        auto& idle = mIdle[path];
        if (idle.size() < kMaxIdleConnectionsPerPeer) {
            idle.push_back(IdleConnection{fd, peer, monotonicMs(), mCallMs.load()});
            return;
        }
    }
    close(fd);
}

void Transport::dropIdleConnections(const std::string& path) {
    std::vector<IdleConnection> idle;
    {
        std::lock_guard<std::mutex> lock(mConnLock);
        auto it = mIdle.find(path);
        if (it != mIdle.end()) {
            idle.swap(it->second);
            mIdle.erase(it);
        }
    }
    for (const IdleConnection& c : idle) {
        close(c.fd);
    }
}

status_t Transport::sendOneWay(const std::string& path, const std::vector<uint8_t>& bytes) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        status_t err = OK;
        bool reused = false;
        pid_t peer = 0;
        const int fd = takeConnection(path, &err, &reused, &peer);
        if (fd < 0) {
            return err;
        }
        err = sendAll(fd, bytes.data(), bytes.size());
        if (err == OK) {
            returnConnection(path, fd, peer);
            return OK;
        }
        close(fd);
        // An idle connection the peer has since closed: try a fresh one once.
        if (!(reused && err == DEAD_OBJECT)) {
            return err;
        }
    }
    return DEAD_OBJECT;
}

status_t Transport::transact(int64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                             uint32_t flags) {
    std::string path;
    Frame frame;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const auto it = mHandles.find(handle);
        if (it == mHandles.end()) {
            return DEAD_OBJECT;
        }
        path = it->second.path;
        frame.header.target = it->second.node;
    }
    frame.header.kind = FRAME_TRANSACTION;
    frame.header.code = code;
    frame.header.flags = flags | TF_ACCEPT_FDS;  // as the device's IPCThreadState sends it

    // The connection first: the objects sent are counted as the peer's.
    bool reused = false;
    pid_t peer = 0;
    status_t err = OK;
    int fd = takeConnection(path, &err, &reused, &peer);
    if (fd < 0) {
        if (err == DEAD_OBJECT) {
            markPathDead(path);
        }
        return err;
    }
    Exports exported;
    err = parcelToFrame(data, &frame, &exported, peer);
    if (err != OK) {
        returnConnection(path, fd, peer);
        return err;
    }
    // The call holds its own reference to each object it sends until the
    // reply is read: the peer may release its reference before an echo of
    // the object comes back in the reply.
    holdNodes(exported.local);
    struct HoldRelease {
        Transport* transport;
        const std::vector<uint64_t>& nodes;
        ~HoldRelease() { transport->releaseNodes(nodes); }
    } holdRelease{this, exported.local};
    const std::vector<uint8_t> bytes = encodeFrame(&frame);

    err = sendAll(fd, bytes.data(), bytes.size());
    if (err == DEAD_OBJECT && reused) {
        // An idle connection the peer has since closed: try a fresh one once.
        close(fd);
        fd = takeConnection(path, &err, &reused, &peer);
        if (fd >= 0) {
            err = sendAll(fd, bytes.data(), bytes.size());
        }
    }
    if (err != OK) {
        if (fd >= 0) {
            close(fd);
        }
        undoExports(exported, peer);
        if (err == DEAD_OBJECT) {
            markPathDead(path);
        }
        return err;
    }
    if (flags & IBinder::FLAG_ONEWAY) {
        returnConnection(path, fd, peer);
        return OK;
    }

    // The reply usually arrives whole in one recv. The peer sends nothing
    // but this reply on the connection, so bytes past it are a bad reply.
    thread_local FrameReader replyReader;
    Frame answer;
    err = replyReader.read(fd, &answer);
    if (err == OK && (answer.header.kind != FRAME_REPLY || replyReader.hasPending())) {
        err = BAD_VALUE;
    }
    replyReader.clear();
    if (err != OK) {
        close(fd);
        if (err == DEAD_OBJECT) {
            markPathDead(path);
            return DEAD_OBJECT;
        }
        if (err == TIMED_OUT) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "No reply from %s within %d ms",
                                path.c_str(), mCallMs.load());
            return TIMED_OUT;
        }
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad reply from %s (error %d)", path.c_str(),
                            err);
        return FAILED_TRANSACTION;
    }
    returnConnection(path, fd, peer);
    if (answer.header.status < 0) {
        if (answer.header.status == DEAD_OBJECT) {
            markHandleDead(handle);  // the process lives, the object is gone
        }
        return answer.header.status;
    }
    if (reply != nullptr) {
        if (frameToParcel(&answer, reply) != OK) {
            reply->freeData();
            return FAILED_TRANSACTION;
        }
    }
    return OK;
}

status_t Transport::publish(const sp<IBinder>& local, std::string* path, uint64_t* node) {
    if (local == nullptr || local->localBinder() == nullptr) {
        return INVALID_OPERATION;
    }
    const status_t err = ownPath(path);
    if (err != OK) {
        return err;
    }
    *node = exportLocal(local, true, 0);
    return OK;
}

sp<IBinder> Transport::resolve(const std::string& path, uint64_t node) {
    if (isOwnPath(path)) {
        return lookupNode(node);
    }
    return proxyFor(path, node, false);
}

}  // namespace hostbinder
}  // namespace android
