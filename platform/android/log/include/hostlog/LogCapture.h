#pragma once
// Host-only: records the messages logged through liblog while an instance is
// alive, so that tests can assert on exact lines. Several captures may be
// active at once (each sees every message). While any capture that was
// created with echo=false is alive, nothing is written to stderr.
//
// Thread-safe: messages may arrive from any thread while a test reads.

#include <string>
#include <vector>

namespace hostlog {

struct LogEntry {
    int priority;
    std::string tag;
    std::string message;
};

class LogCapture {
  public:
    explicit LogCapture(bool echo = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogEntry> entries() const;
    // The messages logged under one tag, in order.
    std::vector<std::string> messages(const std::string& tag) const;
    // True when a message with exactly this priority, tag and text was logged.
    bool contains(int priority, const std::string& tag, const std::string& message) const;
    // Number of messages logged under the tag whose text contains the fragment.
    size_t count(const std::string& tag, const std::string& fragment) const;
    void clear();

    // Called by liblog for every message.
    void record(const LogEntry& entry);
    bool echo() const { return echo_; }

  private:
    const bool echo_;
    struct State;
    State* state_;
};

// Formats a capture's entries one per line ("P TAG: message"), for failure output.
std::string describe(const std::vector<LogEntry>& entries);

}  // namespace hostlog
