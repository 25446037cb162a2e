#include "hostlog/LogCapture.h"

#include <algorithm>
#include <mutex>

#include "LogRegistry.h"

namespace hostlog {

struct LogCapture::State {
    mutable std::mutex mutex;  // guards entries
    std::vector<LogEntry> entries;
};

LogCapture::LogCapture(bool echo) : echo_(echo), state_(new State) {
    registerCapture(this);
}

LogCapture::~LogCapture() {
    unregisterCapture(this);
    delete state_;
}

void LogCapture::record(const LogEntry& entry) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->entries.push_back(entry);
}

std::vector<LogEntry> LogCapture::entries() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->entries;
}

std::vector<std::string> LogCapture::messages(const std::string& tag) const {
    std::vector<std::string> out;
    for (const LogEntry& e : entries()) {
        if (e.tag == tag) {
            out.push_back(e.message);
        }
    }
    return out;
}

bool LogCapture::contains(int priority, const std::string& tag, const std::string& message) const {
    const std::vector<LogEntry> all = entries();
    return std::any_of(all.begin(), all.end(), [&](const LogEntry& e) {
        return e.priority == priority && e.tag == tag && e.message == message;
    });
}

size_t LogCapture::count(const std::string& tag, const std::string& fragment) const {
    const std::vector<LogEntry> all = entries();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const LogEntry& e) {
        return e.tag == tag && e.message.find(fragment) != std::string::npos;
    }));
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->entries.clear();
}

std::string describe(const std::vector<LogEntry>& entries) {
    static const char kLetters[] = "??VDIWEFS";
    std::string out;
    for (const LogEntry& e : entries) {
        const int p = (e.priority >= 0 && e.priority <= 8) ? e.priority : 0;
        out += kLetters[p];
        out += ' ' + e.tag + ": " + e.message + '\n';
    }
    return out;
}

}  // namespace hostlog
