#pragma once
// The process's binder transport on a Linux host: the kernel driver's job,
// done over UNIX stream sockets (frames in WireFormat.h).
//
// Exporting: a local object that leaves the process in a parcel becomes a
// node (a number) of this process's endpoint, a listening socket under
// <root>/dev/socket/binder/<pid>-<random> (one per device root the process
// used). The node keeps the object alive while other processes hold counted
// references to it (they send RELEASE when their proxy goes, from a thread
// of their own: ReleaseQueue.h) or, for a published service, for good.
//
// Importing: a reference from another process becomes a BpBinder with a
// process-local handle; a reference to one of our own nodes comes back as
// the local object itself, as the driver does.
//
// Calling: a two-way call takes an idle connection to the peer (or opens
// one), sends the frame and waits for the reply: never past Limits::callMs
// without a byte of it (TIMED_OUT) nor past the peer's death (end of stream
// gives DEAD_OBJECT and the proxies of that process die). Sends and connects
// are bounded (kIoTimeoutMs). One-way calls return once sent; calls sent one after the
// other on one connection are served in order.
//
// Serving: the pool's threads (spawned on demand up to the maximum, plus
// threads that joined) wait (epoll) on the endpoints and accepted
// connections themselves; the thread that takes a readable connection reads
// its frame, runs the transaction and answers, and a new thread is spawned
// when none is left waiting. Each fd is armed one-shot, so a connection is
// served by one thread at a time. A bad frame (wrong magic or kind, sizes beyond bounds,
// end of stream) drops that connection only; a well-framed transaction whose
// object table is invalid is answered with FAILED_TRANSACTION.
//
// Bounds on what one local peer can hold (Limits, checked by a thread of
// their own): a frame must arrive whole within partialFrameMs of its first
// byte, and a connection with no frame under way is closed after idleMs
// (except one that only watches for this process's exit). Each peer process
// (SO_PEERCRED) has at most kMaxConnectionsPerPeer connections, and only
// processes of this user (or root) are served; at kMaxConnections, the
// connection idle the longest makes room for a new one. Clients drop their
// pooled connections after half of idleMs, before a server would.
//
// A process that forwards a proxy (passes a reference it received on to
// another process) first acquires one more reference from the object's owner
// for the new holder (a two-way ACQUIRE naming it), which the new holder
// releases in turn; so the owner keeps the object while any process holds a
// proxy to it. The owner counts, per peer process, the references it handed
// to it or acquired for it: a RELEASE gives back only those, and only a
// holder may ACQUIRE. A call that sends
// its own objects also holds them until its reply has been read, so an
// object echoed back in the reply is still there.
//
// Thread-safety: everything is thread-safe; the locks below are never held
// while user code (onTransact, destructors of binder objects) runs.

#include <sys/types.h>

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <binder/BpBinder.h>
#include <binder/Parcel.h>

#include "ReleaseQueue.h"
#include "WireFormat.h"

namespace android {
namespace hostbinder {

class Transport {
  public:
    static constexpr int kIoTimeoutMs = 5000;
    static constexpr size_t kMaxConnections = 512;
    static constexpr size_t kDefaultMaxThreads = 15;
    static constexpr size_t kMaxIdleConnectionsPerPeer = 8;
    static constexpr size_t kMaxConnectionsPerPeer = 64;

    // Time bounds of the transport. The defaults are the product's; tests
    // shorten them rather than wait minutes.
    struct Limits {
        int idleMs = 120000;        // a served connection with no frame under way
        int partialFrameMs = 5000;  // from a frame's first byte to its last
        // A two-way call (every call the system makes: callbacks to clients,
        // service look-ups, ACQUIRE) fails with TIMED_OUT once this passes
        // without a byte of its reply; the connection is then closed, since a
        // late reply would arrive on it. The proxy stays usable.
        int callMs = 30000;
    };
    void setLimits(const Limits& limits);
    Limits limits() const;

    // The process's transport, created on first use and never destroyed
    // (pool threads may still run while the process exits).
    static Transport& instance();

    // Client side.
    status_t transact(int64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags);
    sp<IBinder> proxyForHandle(int64_t handle);
    void proxyDestroyed(int64_t handle);
    // Starts watching the proxy's process; DEAD_OBJECT if it is already gone.
    status_t watchDeath(int64_t handle);
    // Where the handle counter goes on (handles are never reused), so that
    // tests can reach the 32-bit boundary.
    void setNextHandle(int64_t next);

    // Service manager side. publish pins the object for the life of the process.
    status_t publish(const sp<IBinder>& local, std::string* path, uint64_t* node);
    // The object named by (path, node): ours, a proxy, or nullptr when it is
    // one of our paths but the node is unknown.
    sp<IBinder> resolve(const std::string& path, uint64_t node);

    // Pool.
    void startThreadPool();
    void setMaxThreads(size_t maxThreads);
    size_t maxThreads() const;
    void joinThreadPool();
    void spawnPooledThread();

  private:
    Transport();
    ~Transport() = delete;

    struct Node {
        sp<IBinder> binder;
        uint64_t refs = 0;
        bool pinned = false;
    };
    struct HandleEntry {
        wp<BpBinder> proxy;
        std::string path;
        uint64_t node = 0;
        uint32_t counted = 0;  // counted references received, released on destruction
    };
    struct Endpoint {
        std::string root;
        std::string path;
        int fd = -1;
    };
    struct Watch;  // an fd the looper waits on (TransportServer.cpp)

    // Exports and imports (mLock).
    status_t ownPath(std::string* path);
    // A reference to `binder` handed to process `peer` (0: none, a
    // published service pins its node instead).
    uint64_t exportLocal(const sp<IBinder>& binder, bool pin, pid_t peer);
    void releaseNode(uint64_t node, uint64_t count);
    // Per-peer accounting: `peer` gives back up to `count` references it
    // holds (how many it held of those), or releases them.
    uint64_t debitHeld(pid_t peer, uint64_t node, uint64_t count);
    void releaseHeld(pid_t peer, uint64_t node, uint64_t count);
    // `requester` holds `node` and forwards it to `beneficiary`: counts
    // `count` references for the latter. False if not held or gone.
    bool acquireFor(pid_t requester, pid_t beneficiary, uint64_t node, uint64_t count);
    sp<IBinder> lookupNode(uint64_t node);
    bool isOwnPath(const std::string& path);
    // A socket of this user directly in the canonical binder directory (of
    // this root or of one of our endpoints): the only places a reference
    // received from a peer may name, so that a peer cannot make this process
    // connect anywhere else, not even through a link.
    bool isBinderSocketPath(const std::string& path);
    sp<BpBinder> proxyFor(const std::string& path, uint64_t node, bool counted);
    void markPathDead(const std::string& path);
    void markHandleDead(int64_t handle);

    // Translation between parcels and frames.
    // References a frame hands out: our nodes it counted, and other
    // processes' nodes it acquired for the receiver (forwarded proxies).
    struct Exports {
        std::vector<uint64_t> local;
        std::vector<std::pair<std::string, uint64_t>> remote;
    };
    // `peer`: the process the frame goes to, which our objects are counted for.
    status_t parcelToFrame(const Parcel& parcel, Frame* frame, Exports* exports, pid_t peer);
    // BAD_VALUE, with every counted reference of the frame given back, when
    // an object or reference is invalid.
    status_t frameToParcel(Frame* frame, Parcel* parcel);
    // Gives back the counted references of a frame that is refused, from
    // reference `from` on: ours to our accounting, others' to their owners.
    void releaseFrameRefs(const Frame& frame, size_t from);
    void undoExports(const Exports& exports, pid_t peer);
    void holdNodes(const std::vector<uint64_t>& nodes);
    void releaseNodes(const std::vector<uint64_t>& nodes);
    status_t acquireRemote(const std::string& path, uint64_t node, pid_t beneficiary);

    // Outgoing connections (mConnLock).
    struct IdleConnection {
        int fd;
        pid_t pid;  // the serving process (SO_PEERCRED)
        int64_t sinceMs;
        int callMs;  // its receive timeout
    };
    int takeConnection(const std::string& path, status_t* err, bool* reused, pid_t* peer = nullptr);
    void returnConnection(const std::string& path, int fd, pid_t peer);
    void dropIdleConnections(const std::string& path);
    status_t sendOneWay(const std::string& path, const std::vector<uint8_t>& bytes);
    // The release queue's sender: one RELEASE frame per (node, count).
    status_t sendReleases(const std::string& path,
                          const std::vector<std::pair<uint64_t, uint64_t>>& releases);

    // Serving (TransportServer.cpp).
    status_t createEndpoint(const std::string& root, Endpoint* ep);
    void ensureLooper();
    void addWatch(Watch* w, bool oneShot);
    void rearm(Watch* w);
    void closeWatch(Watch* w);
    void acceptAll(Watch* listener);
    void serveConnection(Watch* conn);
    bool serveFrame(Watch* conn, Frame* frame);
    void ensureWaiter();
    void workerLoop(bool spawned);
    // Closes connections past their deadlines (Limits); runs for good.
    void reaperLoop();
    // Shuts down the connection idle the longest (mPoolLock held); false if none.
    bool evictIdlest();

    mutable std::mutex mLock;  // guards mNodes, mNodeByBinder, mNextNode, mHeld, mHandles,
                               // mHandleByRef, mNextHandle, mEndpoints, mWatchedPaths
    std::map<uint64_t, Node> mNodes;
    std::map<const IBinder*, uint64_t> mNodeByBinder;
    uint64_t mNextNode = 1;
    // Counted references to our nodes that each peer process holds: what we
    // handed it, or what a holder acquired for it. A peer releases only those.
    std::map<std::pair<pid_t, uint64_t>, uint64_t> mHeld;
    pid_t mPid = 0;
    std::map<int64_t, HandleEntry> mHandles;
    std::map<std::pair<std::string, uint64_t>, int64_t> mHandleByRef;
    int64_t mNextHandle = 1;  // handle 0 would be plain data in a parcel
    std::vector<Endpoint> mEndpoints;
    std::map<std::string, bool> mWatchedPaths;
    std::string mInstanceTag;

    std::mutex mConnLock;  // guards mIdle
    std::map<std::string, std::vector<IdleConnection>> mIdle;

    std::atomic<int> mIdleMs{Limits().idleMs};
    std::atomic<int> mPartialFrameMs{Limits().partialFrameMs};
    std::atomic<int> mCallMs{Limits().callMs};
    // When a warning a peer can provoke (refused connections and releases,
    // deadlines) was last written: at most one a second.
    std::atomic<int64_t> mLastRefusalLogMs{0};

    mutable std::mutex mPoolLock;  // guards the counters, flags and sets below
    size_t mMaxThreads = kDefaultMaxThreads;
    size_t mSpawned = 0;
    size_t mConnections = 0;
    std::map<pid_t, size_t> mConnectionsByPeer;
    bool mLooperStarted = false;
    bool mPoolStarted = false;
    std::set<Watch*> mWatches;  // every fd the looper waits on, owned here
    size_t mThreadNumber = 0;
    std::atomic<int> mEpollFd{-1};
    std::atomic<size_t> mWaiting{0};  // threads in epoll_wait

    // Release notices leave from here, never from the thread that dropped
    // the proxy (which may be a pool thread serving someone else).
    ReleaseQueue mReleases{[this](const std::string& path,
                                  const std::vector<std::pair<uint64_t, uint64_t>>& releases) {
        return sendReleases(path, releases);
    }};

    std::mutex mEndpointCreateLock;  // serialises creating endpoints (held across bind)
};

}  // namespace hostbinder
}  // namespace android
