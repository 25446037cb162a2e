#include "RecordingConnector.h"

#include <sstream>
#include <thread>
#include <utility>

namespace vemo {
namespace test {

RecordingConnector::RecordingConnector(VemoStatus status, LineSink sink,
                                       std::chrono::milliseconds completionDelay)
    : status_(status), sink_(std::move(sink)), completionDelay_(completionDelay) {}

RecordingConnector::~RecordingConnector() {
    std::vector<std::future<void>> completions;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        completions.swap(completions_);
    }
    // Futures of std::async wait for their threads as they go.
}

VemoStatus RecordingConnector::flgrRequest(const std::string& client,
                                           const ipc::FlgrFileRequest& request, FlgrDone done) {
    std::ostringstream line;
    line << "RecordingConnector:flgrRequest client=" << client << " file=" << request.getFilePath()
         << " app=" << request.getApplicationId() << " metadata=" << request.getMetadata()
         << " scale=" << request.getScaleValue();
    record(line.str());
    if (status_ == kVemoStatusOk) {
        // The completion calls into the client: never under the lock.
        auto completion = std::async(std::launch::async, [this, done]() mutable {
            std::this_thread::sleep_for(completionDelay_);
            done(kVemoStatusOk, nullptr, nullptr);
            done = nullptr;  // lets the client's callback go
            if (sink_) {
                sink_("RecordingConnector:completed");
            }
        });
        std::lock_guard<std::mutex> lock(mutex_);
        completions_.push_back(std::move(completion));
    }
    return status_;
}

VemoStatus RecordingConnector::factRequest(const std::string& client,
                                           const std::string& dataProducer,
                                           const std::string& message) {
    record("RecordingConnector:factRequest client=" + client + " producer=" + dataProducer +
           " message=" + message);
    return status_;
}

VemoStatus RecordingConnector::registerResetCb(std::function<void()> /*callback*/) {
    return kVemoStatusOk;
}

void RecordingConnector::record(const std::string& line) {
    if (sink_) {
        sink_(line);
    }
}

}  // namespace test
}  // namespace vemo
