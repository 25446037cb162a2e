#pragma once
// Forms sessions from waiting participation requests and closes them.
//
// Requests are grouped by (kind, name, second name, length): every member
// of a session must hold the same texts, since both ends of a pair hash
// them. A group becomes a session when it holds at least the minimum cohort
// and either reaches the maximum or its oldest request has waited the cohort
// window; a device joins a session once (its later request waits for the
// next one). Members are linked by the protocol library's neighbour graph
// and each gets its own mask directive. A session whose members have all
// uploaded is summed modulo 2^32 and checked; one still incomplete at its
// deadline fails (pairwise masking has no dropout recovery). Failed
// sessions publish nothing.
//
// All state lives in the store, so a restarted controller picks up where
// the killed one stopped. Thread-safe: tick() and finish() may run on any
// thread; a background thread calls tick() while started.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CloudStore.h"

namespace vemo {
namespace cloud {

struct ControllerConfig {
    size_t minCohort = 5;
    size_t maxCohort = 1000;
    int64_t cohortWindowMs = 30000;
    int64_t sessionDeadlineMs = 120000;
    unsigned neighbours = 12;
    int64_t tickMs = 200;
};

class SessionController {
  public:
    static constexpr const char* kNamespace = "RA.Tolmo.SecureAggregationSessionController";
    static constexpr const char* kDirectiveName = "UploadMaskedData";
    static constexpr const char* kChecksumReason = "checksum mismatch";

    // `clockMs` gives wall-clock milliseconds (deadlines survive restarts).
    SessionController(CloudStore& store, ControllerConfig config, std::function<int64_t()> clockMs);
    ~SessionController();
    SessionController(const SessionController&) = delete;
    SessionController& operator=(const SessionController&) = delete;

    // Starts / stops the background thread that ticks every tickMs and when
    // woken.
    void start();
    void stop();
    // Wakes the background thread (a request arrived).
    void wake();

    // Forms every session that is due, finishes sessions whose members have
    // all uploaded (left open by a crash) and fails those past their
    // deadline. Returns the number of sessions formed.
    size_t tick();

    // Sums and checks a session whose members have all uploaded, then
    // publishes or fails it. False when it failed or was not open.
    bool finish(const std::string& sessionId);

    // The device's directives above `after`, waiting up to `timeoutMs` for
    // one to be queued.
    std::vector<DirectiveRecord> waitForDirectives(const std::string& deviceId, int64_t after,
                                                   int64_t timeoutMs);

    static constexpr size_t kMaxDirectivesPerPoll = 64;

  private:
    void formSession(const std::vector<RequestRecord>& members, int64_t nowMs);
    void run();

    CloudStore& store_;
    const ControllerConfig config_;
    const std::function<int64_t()> clockMs_;

    std::mutex tickMutex_;  // serialises tick(): one grouping pass at a time

    std::mutex wakeMutex_;  // guards wakeRequested_, stopping_ and directiveGeneration_
    std::condition_variable wakeCv_;
    std::condition_variable directivesCv_;
    bool wakeRequested_ = false;
    bool stopping_ = false;
    uint64_t directiveGeneration_ = 0;
    std::thread thread_;
};

}  // namespace cloud
}  // namespace vemo
