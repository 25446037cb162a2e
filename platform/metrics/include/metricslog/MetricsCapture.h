#pragma once
// Host-only: records the metrics records emitted while an instance is alive,
// for tests. Thread-safe.

#include <string>
#include <vector>

namespace metricslog {

struct MetricsRecord {
    int priority;
    std::string tag;
    std::string group;
    std::string schema;
    int number;
    std::string payload;
};

class MetricsCapture {
  public:
    MetricsCapture();
    ~MetricsCapture();
    MetricsCapture(const MetricsCapture&) = delete;
    MetricsCapture& operator=(const MetricsCapture&) = delete;

    std::vector<MetricsRecord> records() const;
    void clear();
    void record(const MetricsRecord& r);

  private:
    struct State;
    State* state_;
};

// The path of the metrics log file under the current device root.
std::string metricsLogPath();

}  // namespace metricslog
