#pragma once
// The daemon object: one per process, owned by main. setup() wires the
// subsystems once at start-up; run() then parks the main thread for the life
// of the process while binder, analytics and upload threads do the work.
//
// Thread-safety: setup() and run() belong to the main thread. stop() may be
// called from any thread (the signal-waiting thread in the product); it takes
// `mutex_`, which guards the running flag and the stop request.
// factVectorCallback() runs on the analytics library's threads and touches no
// daemon state.

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "aggregation/FactManager.h"
#include "daemon/VemoStatus.h"

namespace vemo {

class VemoDaemon {
  public:
    static std::unique_ptr<VemoDaemon> make_unique();

    VemoDaemon();
    // Once set-up has made the aggregation manager: stops the cloud library
    // and waits (bounded) for uploads in flight, so that no thread of theirs
    // still runs while the process's singletons are destroyed.
    ~VemoDaemon();
    VemoDaemon(const VemoDaemon&) = delete;
    VemoDaemon& operator=(const VemoDaemon&) = delete;

    // The start-up sequence; 0, or 6 when a step that must succeed failed
    // (the analytics library refused the vector callback, the aggregation
    // manager could not be made, or the IPC service could not be published).
    VemoStatus setup();

    // Receives each finished analytics vector and hands it, with both texts
    // copied, to the aggregation manager. `vector` is only read during the
    // call.
    static void factVectorCallback(const int* vector, unsigned int length,
                                   const char* applicationId, const char* second);

    // Blocks until stop() is called; never returns on its own.
    void run();

    // Ends run(): clears the running flag under the mutex and notifies. A stop
    // requested before run() starts makes run() return at once, so a signal
    // that arrives during set-up is not lost.
    void stop();

  private:
    std::mutex mutex_;
    std::condition_variable condition_;
    std::atomic<bool> running_{false};
    bool stopRequested_ = false;  // guarded by mutex_
    // Shared with the IPC connector.
    std::shared_ptr<FactManager> factManager_;
    bool managerCreated_ = false;  // main thread only
};

}  // namespace vemo
