#pragma once
// IPCThreadState: the calling thread's binder state. Inside a call served for
// another process it tells who called (the peer's pid and uid, taken from the
// socket's credentials); elsewhere it reports this process. Each thread has
// its own instance; use it only from that thread.

#include <sys/types.h>

#include <binder/ProcessState.h>
#include <utils/Errors.h>

namespace android {

class IPCThreadState {
  public:
    static IPCThreadState* self();
    static IPCThreadState* selfOrNull();

    sp<ProcessState> process();

    status_t clearLastError();

    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    void setStrictModePolicy(int32_t policy);
    int32_t getStrictModePolicy() const;

    // Makes the calling identity this process's until restored.
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    // Serves incoming calls on this thread, as a pool thread, until the
    // process ends.
    void joinThreadPool(bool isMain = true);

    // Nothing is buffered on this host; kept for source compatibility.
    void flushCommands();

    // Host: identity of the call being served on this thread (set by the
    // transport around each incoming transaction).
    void setCallingIdentity(pid_t pid, uid_t uid);

    // Flags of the transaction being served (FLAG_ONEWAY), read by enforceInterface.
    uint32_t getLastTransactionBinderFlags() const;
    void setLastTransactionBinderFlags(uint32_t flags);

  private:
    IPCThreadState();
    ~IPCThreadState();
    friend struct IPCThreadStateHolder;

    pid_t mCallingPid;
    uid_t mCallingUid;
    int32_t mStrictModePolicy;
    status_t mLastError;
    uint32_t mLastTransactionBinderFlags;
};

}  // namespace android
