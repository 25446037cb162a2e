#pragma once
// ProcessState: the process's binder state (one per process, never freed).
//
// Host emulation: a process that hosts binder objects for other processes
// (it published a service, or sent one of its own objects in a parcel)
// listens on a UNIX socket under <root>/dev/socket/binder/ and serves the
// calls it receives on a pool of threads, started by startThreadPool() and
// grown on demand up to the maximum (15 by default, as on the device).
// Unlike the device, a process that exports an object serves it even if it
// never called startThreadPool(), so a callback can never wait for a thread
// nobody will start. Thread-safe.

#include <sys/types.h>

#include <binder/IBinder.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();
    static sp<ProcessState> selfOrNull();

    // The service manager's binder (a local object on this host).
    sp<IBinder> getContextObject(const sp<IBinder>& caller);

    // Starts serving incoming calls on the pool (idempotent).
    void startThreadPool();
    // Largest number of pool threads spawned on demand (threads that call
    // joinThreadPool come on top). 0 is taken as 1 once serving started.
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    size_t getThreadPoolMaxThreadCount() const;
    void spawnPooledThread(bool isMain);

    // The proxy for a handle this process received, or nullptr if unknown.
    sp<IBinder> getStrongProxyForHandle(int32_t handle);

    String8 makeBinderThreadName();

  private:
    ProcessState();
    ~ProcessState() override;
    ProcessState(const ProcessState& o);
    ProcessState& operator=(const ProcessState& o);
};

}  // namespace android
