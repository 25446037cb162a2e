#pragma once
// A ServiceConnector for tests: hands every request as one text line to an
// optional sink (the test service process writes them to stderr), e.g.
// "RecordingConnector:factRequest client=c producer=p message=m" or
// "RecordingConnector:flgrRequest client=c file=f app=a metadata=m scale=0.5",
// and answers with a fixed status. Accepted gradient-file requests
// complete later on a thread of their own, the way the daemon's connector
// completes them from the aggregation core's thread. Thread-safe.

#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "ipc/ServiceConnector.h"

namespace vemo {
namespace test {

class RecordingConnector : public ipc::ServiceConnector {
  public:
    using LineSink = std::function<void(const std::string&)>;

    // Accepted gradient-file requests complete with status 0 after
    // `completionDelay`; the sink then sees "RecordingConnector:completed".
    explicit RecordingConnector(VemoStatus status = kVemoStatusOk, LineSink sink = nullptr,
                                std::chrono::milliseconds completionDelay = {});
    ~RecordingConnector() override;  // waits for the pending completions

    VemoStatus flgrRequest(const std::string& client, const ipc::FlgrFileRequest& request,
                           FlgrDone done) override;
    VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                           const std::string& message) override;
    VemoStatus registerResetCb(std::function<void()> callback) override;

  private:
    void record(const std::string& line);

    const VemoStatus status_;
    const LineSink sink_;
    const std::chrono::milliseconds completionDelay_;
    std::mutex mutex_;  // guards completions_
    std::vector<std::future<void>> completions_;
};

}  // namespace test
}  // namespace vemo
