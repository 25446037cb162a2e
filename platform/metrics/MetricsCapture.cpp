#include "metricslog/MetricsCapture.h"

#include <mutex>

#include "MetricsRegistry.h"

namespace metricslog {

struct MetricsCapture::State {
    mutable std::mutex mutex;  // guards records
    std::vector<MetricsRecord> records;
};

MetricsCapture::MetricsCapture() : state_(new State) {
    registerCapture(this);
}

MetricsCapture::~MetricsCapture() {
    unregisterCapture(this);
    delete state_;
}

void MetricsCapture::record(const MetricsRecord& r) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->records.push_back(r);
}

std::vector<MetricsRecord> MetricsCapture::records() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->records;
}

void MetricsCapture::clear() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->records.clear();
}

}  // namespace metricslog
