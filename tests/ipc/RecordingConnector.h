#pragma once
// A ServiceConnector for tests: records every call, answers with a fixed
// status, and (when accepted) completes gradient-file requests later on its
// own worker thread, the way the daemon's connector completes them from the
// aggregation core's thread. An optional line sink sees one text line per
// call, which the test service process writes to stderr.
//
// Thread-safe: binder threads call in concurrently while a test reads.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ipc/ServiceConnector.h"

namespace vemo {
namespace test {

class RecordingConnector : public ipc::ServiceConnector {
  public:
    struct FactCall {
        std::string client;
        std::string dataProducer;
        std::string message;
    };
    struct FlgrCall {
        std::string client;
        std::string filePath;
        std::string applicationId;
        std::string metadata;
        float scaleValue;
    };
    using LineSink = std::function<void(const std::string&)>;

    // status: what every request returns. Accepted gradient-file requests are
    // completed with status 0 after `completionDelay` on the worker thread.
    explicit RecordingConnector(VemoStatus status = kVemoStatusOk, LineSink sink = nullptr,
                                std::chrono::milliseconds completionDelay = {});
    ~RecordingConnector() override;  // finishes pending completions, joins the worker

    VemoStatus flgrRequest(const std::string& client, const ipc::FlgrFileRequest& request,
                           FlgrDone done) override;
    VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                           const std::string& message) override;
    VemoStatus registerResetCb(std::function<void()> callback) override;

    std::vector<FactCall> factCalls() const;
    std::vector<FlgrCall> flgrCalls() const;
    // Waits until `count` completions have run; false when the bound passed.
    bool waitForCompletions(size_t count, std::chrono::milliseconds bound) const;

  private:
    void runWorker();

    const VemoStatus status_;
    const LineSink sink_;
    const std::chrono::milliseconds completionDelay_;
    mutable std::mutex mutex_;  // guards every member below
    mutable std::condition_variable cond_;
    std::vector<FactCall> factCalls_;
    std::vector<FlgrCall> flgrCalls_;
    std::deque<FlgrDone> pending_;
    size_t completed_ = 0;
    bool stopping_ = false;
    std::thread worker_;
};

}  // namespace test
}  // namespace vemo
