#include "RecordingConnector.h"

#include <sstream>
#include <utility>

namespace vemo {
namespace test {

RecordingConnector::RecordingConnector(VemoStatus status, LineSink sink,
                                       std::chrono::milliseconds completionDelay)
    : status_(status),
      sink_(std::move(sink)),
      completionDelay_(completionDelay),
      worker_([this] { runWorker(); }) {}

RecordingConnector::~RecordingConnector() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    cond_.notify_all();
    worker_.join();
}

VemoStatus RecordingConnector::flgrRequest(const std::string& client,
                                           const ipc::FlgrFileRequest& request, FlgrDone done) {
    std::ostringstream line;
    line << "RecordingConnector:flgrRequest client=" << client << " file=" << request.getFilePath()
         << " app=" << request.getApplicationId() << " metadata=" << request.getMetadata()
         << " scale=" << request.getScaleValue();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        flgrCalls_.push_back({client, request.getFilePath(), request.getApplicationId(),
                              request.getMetadata(), request.getScaleValue()});
        if (status_ == kVemoStatusOk) {
            pending_.push_back(std::move(done));
        }
    }
    cond_.notify_all();
    if (sink_) {
        sink_(line.str());
    }
    return status_;
}

VemoStatus RecordingConnector::factRequest(const std::string& client,
                                           const std::string& dataProducer,
                                           const std::string& message) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        factCalls_.push_back({client, dataProducer, message});
    }
    if (sink_) {
        sink_("RecordingConnector:factRequest client=" + client + " producer=" + dataProducer +
              " message=" + message);
    }
    return status_;
}

VemoStatus RecordingConnector::registerResetCb(std::function<void()> /*callback*/) {
    return kVemoStatusOk;
}

std::vector<RecordingConnector::FactCall> RecordingConnector::factCalls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return factCalls_;
}

std::vector<RecordingConnector::FlgrCall> RecordingConnector::flgrCalls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return flgrCalls_;
}

bool RecordingConnector::waitForCompletions(size_t count, std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_for(lock, bound, [&] { return completed_ >= count; });
}

void RecordingConnector::runWorker() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        cond_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
        if (pending_.empty()) {
            return;
        }
        FlgrDone done = std::move(pending_.front());
        pending_.pop_front();
        lock.unlock();
        std::this_thread::sleep_for(completionDelay_);
        // The completion calls into the client; never while holding the lock.
        done(kVemoStatusOk, nullptr, nullptr);
        done = nullptr;
        if (sink_) {
            sink_("RecordingConnector:completed");
        }
        lock.lock();
        ++completed_;
        cond_.notify_all();
    }
}

}  // namespace test
}  // namespace vemo
