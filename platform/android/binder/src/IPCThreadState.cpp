#include <binder/IPCThreadState.h>

#include <unistd.h>

#include "Transport.h"

namespace android {

struct IPCThreadStateHolder {
    IPCThreadState state;
};

namespace {
thread_local IPCThreadStateHolder tState;
}

IPCThreadState::IPCThreadState()
    : mCallingPid(getpid()),
      mCallingUid(getuid()),
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
    mCallingPid = getpid();
    mCallingUid = getuid();
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
