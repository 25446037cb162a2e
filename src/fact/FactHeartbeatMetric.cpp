#include "fact/FactHeartbeatMetric.h"

#include <system_error>

#include "common/VemoLogger.h"
#include "common/VemoMetric.h"

namespace fact {
namespace {
const vemo::VemoLogger logger("FactMetrics");
const char kGroup[] = "rnzgvlsf";
const char kSchema[] = "fyln/2/02330460";
const char kMetricName[] = "FactDeviceClientHeartBeat";
}  // namespace

constexpr std::chrono::milliseconds FactHeartbeatMetric::kReportInterval;

FactHeartbeatMetric& FactHeartbeatMetric::GetInstance() {
    static FactHeartbeatMetric instance;
    return instance;
}

FactHeartbeatMetric::FactHeartbeatMetric(std::chrono::milliseconds interval)
    : intervalMs_(interval.count()) {
    counters_.max_load_factor(1.0f);
    try {
        worker_ = std::thread(&FactHeartbeatMetric::run, this);
    } catch (const std::system_error& e) {
        throw std::system_error(e.code(), "thread constructor failed");
    }
}

FactHeartbeatMetric::~FactHeartbeatMetric() {
    shutdown();
    if (worker_.joinable()) {
        worker_.join();
    }
}

void FactHeartbeatMetric::addCount(const std::string& name) {
    addCounts(name, 1);
}

void FactHeartbeatMetric::addCounts(const std::string& name, int n) {
    std::lock_guard<std::mutex> guard(lock_);
    // Modulo 2^32, as the device's 32-bit counters: signed overflow would be
    // undefined.
    int32_t& counter = counters_[name];
    counter = static_cast<int32_t>(static_cast<uint32_t>(counter) + static_cast<uint32_t>(n));
}

void FactHeartbeatMetric::setCounterDatapoint(const std::string& name, int value) {
    std::lock_guard<std::mutex> guard(lock_);
    counters_[name] = value;
}

int32_t FactHeartbeatMetric::getCount(const std::string& name) {
    std::lock_guard<std::mutex> guard(lock_);
    const auto it = counters_.find(name);
    return it == counters_.end() ? 0 : it->second;
}

void FactHeartbeatMetric::shutdown() {
    std::lock_guard<std::mutex> guard(lock_);
    shutdownRequested_ = true;
    wakeUp_.notify_all();
}

void FactHeartbeatMetric::run() {
    std::unique_lock<std::mutex> guard(lock_);
    if (shutdownRequested_) {
        return;
    }
    for (;;) {
        sendMetrics();
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(intervalMs_);
        wakeUp_.wait_until(guard, deadline, [this] { return shutdownRequested_.load(); });
        if (shutdownRequested_) {
            break;
        }
    }
}

void FactHeartbeatMetric::sendMetrics() {
    logger.i("%s:Sending %s", "sendMetrics", kMetricName);
    vemo::VemoMetric metric(kGroup, kSchema, kMetricName);
    std::string text = "Metadata values:";
    for (auto& counter : counters_) {
        text += counter.first + "," + std::to_string(counter.second) + ";";
        metric.addCounterDataPoint(counter.first, counter.second);
        counter.second = 0;
    }
    logger.d("%s:%s", "sendMetrics", text.c_str());
}

}  // namespace fact
