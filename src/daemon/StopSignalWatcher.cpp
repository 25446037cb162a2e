#include "daemon/StopSignalWatcher.h"

namespace vemo {

StopSignalWatcher::StopSignalWatcher(std::function<void(int)> onStop) : onStop_(std::move(onStop)) {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals_, &previousMask_);
    thread_ = std::thread(&StopSignalWatcher::wait, this);
}

StopSignalWatcher::~StopSignalWatcher() {
    closing_ = true;
    // Wake the waiting thread with a signal aimed at it alone; it sees
    // closing_ and leaves without calling the stop function.
    if (!done_) {
        pthread_kill(thread_.native_handle(), SIGTERM);
    }
    thread_.join();
    // A second stop signal (Ctrl-C, then a TERM from a supervisor) may still be
    // pending; unblocked, its default action would kill a process that is
    // already stopping cleanly.
    const timespec now{0, 0};
    while (sigtimedwait(&signals_, nullptr, &now) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void StopSignalWatcher::wait() {
    int signal = 0;
    while (sigwait(&signals_, &signal) != 0) {
    }
    done_ = true;
    if (!closing_) {
        onStop_(signal);
    }
}

}  // namespace vemo
