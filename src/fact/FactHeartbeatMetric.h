#pragma once
// Process-wide named counters of the analytics library, reported once an hour
// as one "FactDeviceClientHeartBeat" metrics record and then zeroed. The
// record doubles as a liveness heartbeat: it is sent even when nothing was
// counted. The first report goes out as soon as the instance exists.
//
// Thread-safety: any thread may count at any time. `lock_` guards the
// counters and the shutdown flag; the worker holds it while it builds and
// emits a report, so a counting thread waits for at most one report.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace fact {

class FactHeartbeatMetric {
  public:
    static constexpr std::chrono::milliseconds kReportInterval{3600000};

    // The process-wide instance, created (and its worker started) on first use.
    static FactHeartbeatMetric& GetInstance();

    // Starts the reporting worker. The product uses the hourly interval; other
    // intervals exist so that tests need not wait an hour. Throws
    // std::system_error("thread constructor failed") when no thread can start.
    explicit FactHeartbeatMetric(std::chrono::milliseconds interval = kReportInterval);
    // Stops the worker at once (no further report) and joins it.
    ~FactHeartbeatMetric();
    FactHeartbeatMetric(const FactHeartbeatMetric&) = delete;
    FactHeartbeatMetric& operator=(const FactHeartbeatMetric&) = delete;

    // Counts wrap modulo 2^32 (2147483647 + 1 is -2147483648), as 32-bit
    // counters do on the device; they never saturate.
    void addCount(const std::string& name);
    void addCounts(const std::string& name, int n);
    void setCounterDatapoint(const std::string& name, int value);
    // The counter's value since the last report; 0 when it was never counted.
    int32_t getCount(const std::string& name);

    // Asks the worker to stop; counting still works but is never reported.
    void shutdown();

  private:
    void run();
    // Builds and emits one record and zeroes the counters; needs lock_.
    void sendMetrics();

    std::unordered_map<std::string, int32_t> counters_;  // guarded by lock_
    std::mutex lock_;
    std::thread worker_;
    const int64_t intervalMs_;
    std::condition_variable wakeUp_;
    std::atomic<bool> shutdownRequested_{false};  // written under lock_
};

}  // namespace fact
