#include <binder/IPCThreadState.h>

#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "Transport.h"

namespace android {

struct IPCThreadStateHolder {
    IPCThreadState state;
};

namespace {
thread_local IPCThreadStateHolder tState;

// This process's identity, asked of the kernel once (every served call
// restores it); a forked child asks again.
std::atomic<pid_t> sPid{0};

pid_t selfPid() {
    pid_t pid = sPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        static const bool registered =
            pthread_atfork(nullptr, nullptr, [] { sPid.store(0, std::memory_order_relaxed); }) == 0;
        static_cast<void>(registered);
        pid = getpid();
        sPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

uid_t selfUid() {
    static const uid_t uid = getuid();  // the same in a forked child
    return uid;
}
}  // namespace

IPCThreadState::IPCThreadState()
    : mCallingPid(selfPid()),
      mCallingUid(selfUid()),
      mStrictModePolicy(0),
      mLastError(NO_ERROR),
      mLastTransactionBinderFlags(0) {}

IPCThreadState::~IPCThreadState() = default;

IPCThreadState* IPCThreadState::self() {
    return &tState.state;
}

IPCThreadState* IPCThreadState::selfOrNull() {
    return &tState.state;
}

sp<ProcessState> IPCThreadState::process() {
    return ProcessState::self();
}

status_t IPCThreadState::clearLastError() {
    const status_t err = mLastError;
    mLastError = NO_ERROR;
    return err;
}

pid_t IPCThreadState::getCallingPid() const {
    return mCallingPid;
}

uid_t IPCThreadState::getCallingUid() const {
    return mCallingUid;
}

void IPCThreadState::setStrictModePolicy(int32_t policy) {
    mStrictModePolicy = policy;
}

int32_t IPCThreadState::getStrictModePolicy() const {
    return mStrictModePolicy;
}

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = (static_cast<int64_t>(mCallingUid) << 32) |
                          static_cast<int64_t>(static_cast<uint32_t>(mCallingPid));
    mCallingPid = selfPid();
    mCallingUid = selfUid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mCallingPid = static_cast<pid_t>(static_cast<uint32_t>(token & 0xffffffff));
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    hostbinder::Transport::instance().joinThreadPool();
}

void IPCThreadState::flushCommands() {}

void IPCThreadState::setCallingIdentity(pid_t pid, uid_t uid) {
    mCallingPid = pid;
    mCallingUid = uid;
}

uint32_t IPCThreadState::getLastTransactionBinderFlags() const {
    return mLastTransactionBinderFlags;
}

void IPCThreadState::setLastTransactionBinderFlags(uint32_t flags) {
    mLastTransactionBinderFlags = flags;
}

}  // namespace android
