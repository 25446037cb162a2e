#include <binder/ProcessState.h>

#include <unistd.h>

#include <atomic>

#include <binder/IServiceManager.h>

#include "Transport.h"

namespace android {

namespace {
std::atomic<int> sThreadNameCounter{0};
}

sp<ProcessState> ProcessState::self() {
    // Never freed: pool threads may still run while the process exits.
    static ProcessState* const sInstance = [] {
        auto* const ps = new ProcessState();
        ps->incStrong(nullptr);
        return ps;
    }();
    return sInstance;
}

sp<ProcessState> ProcessState::selfOrNull() {
    return self();
}

ProcessState::ProcessState() {
    hostbinder::Transport::instance();
}

ProcessState::~ProcessState() = default;

sp<IBinder> ProcessState::getContextObject(const sp<IBinder>& /*caller*/) {
    return IInterface::asBinder(defaultServiceManager());
}

void ProcessState::startThreadPool() {
    hostbinder::Transport::instance().startThreadPool();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    hostbinder::Transport::instance().setMaxThreads(maxThreads);
    return NO_ERROR;
}

size_t ProcessState::getThreadPoolMaxThreadCount() const {
    return hostbinder::Transport::instance().maxThreads();
}

void ProcessState::spawnPooledThread(bool /*isMain*/) {
    hostbinder::Transport::instance().spawnPooledThread();
}

sp<IBinder> ProcessState::getStrongProxyForHandle(int32_t handle) {
    // Handles are 64-bit on this host; parcels read them through the transport.
    return hostbinder::Transport::instance().proxyForHandle(handle);
}

String8 ProcessState::makeBinderThreadName() {
    const int s = ++sThreadNameCounter;
    return String8::format("Binder:%d_%X", static_cast<int>(getpid()), s);
}

}  // namespace android
