#pragma once
// Turns SIGTERM and SIGINT into a call on an ordinary thread, so that no work
// is ever done inside a signal handler.
//
// The constructor blocks both signals in the calling thread; every thread
// created afterwards inherits the mask, so construct it first in main, before
// any other thread exists. A dedicated thread then waits for the signals with
// sigwait() and calls the stop function once. The destructor ends that thread
// whether or not a signal came, discards stop signals still pending and
// restores the calling thread's signal mask.

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace vemo {

class StopSignalWatcher {
  public:
    explicit StopSignalWatcher(std::function<void(int signal)> onStop);
    ~StopSignalWatcher();
    StopSignalWatcher(const StopSignalWatcher&) = delete;
    StopSignalWatcher& operator=(const StopSignalWatcher&) = delete;

  private:
    void wait();

    std::function<void(int)> onStop_;
    sigset_t signals_;
    sigset_t previousMask_;
    std::atomic<bool> closing_{false};
    std::atomic<bool> done_{false};  // the waiting thread has left sigwait
    std::thread thread_;
};

}  // namespace vemo
