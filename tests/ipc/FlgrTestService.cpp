// A process hosting the daemon's binder service, for cross-process tests and
// vemoctl's end-to-end tests. It runs until killed.
//
//   flgr_test_service [--no-connector] [--status N] [--delay-ms N]
//
// Its connector writes every request to stderr as one line and answers with
// the given status; the host's own log line "start:addedBinderService, ..."
// says the service is published.

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "ipc/ServiceConnector.h"
#include "ipc/ServiceHost.h"

namespace {

void writeLine(const std::string& text) {
    const std::string line = text + "\n";
    // One write per line keeps lines whole when binder threads write at once.
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    (void)written;
}

// Lines "RecordingConnector:factRequest client=c producer=p message=m" and
// "RecordingConnector:flgrRequest client=c file=f app=a metadata=m scale=0.5".
// An accepted gradient-file request completes with status 0 after the delay
// on a thread of its own, the way the daemon's connector completes them from
// the aggregation core's thread; then "RecordingConnector:completed".
class RecordingConnector : public vemo::ipc::ServiceConnector {
  public:
    RecordingConnector(vemo::VemoStatus status, std::chrono::milliseconds completionDelay)
        : status_(status), completionDelay_(completionDelay) {}

    vemo::VemoStatus flgrRequest(const std::string& client,
                                 const vemo::ipc::FlgrFileRequest& request,
                                 FlgrDone done) override {
        std::ostringstream line;
        line << "RecordingConnector:flgrRequest client=" << client
             << " file=" << request.getFilePath() << " app=" << request.getApplicationId()
             << " metadata=" << request.getMetadata() << " scale=" << request.getScaleValue();
        writeLine(line.str());
        if (status_ == vemo::kVemoStatusOk) {
            // Detached: the process ends only by being killed.
            std::thread([delay = completionDelay_, done]() mutable {
                std::this_thread::sleep_for(delay);
                done(vemo::kVemoStatusOk, nullptr, nullptr);
                done = nullptr;  // lets the client's callback go
                writeLine("RecordingConnector:completed");
            }).detach();
        }
        return status_;
    }
    vemo::VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                                 const std::string& message) override {
        writeLine("RecordingConnector:factRequest client=" + client + " producer=" + dataProducer +
                  " message=" + message);
        return status_;
    }
    vemo::VemoStatus registerResetCb(std::function<void()> /*callback*/) override {
        return vemo::kVemoStatusOk;
    }

  private:
    const vemo::VemoStatus status_;
    const std::chrono::milliseconds completionDelay_;
};

}  // namespace

int main(int argc, char** argv) {
    bool withConnector = true;
    vemo::VemoStatus status = vemo::kVemoStatusOk;
    long delayMs = 0;
    for (int k = 1; k < argc; ++k) {
        if (std::strcmp(argv[k], "--no-connector") == 0) {
            withConnector = false;
        } else if (std::strcmp(argv[k], "--status") == 0 && k + 1 < argc) {
            status = static_cast<vemo::VemoStatus>(std::atoi(argv[++k]));
        } else if (std::strcmp(argv[k], "--delay-ms") == 0 && k + 1 < argc) {
            delayMs = std::atol(argv[++k]);
        } else {
            writeLine(std::string("flgr_test_service: unknown argument ") + argv[k]);
            return 2;
        }
    }
    std::shared_ptr<RecordingConnector> connector;
    if (withConnector) {
        connector =
            std::make_shared<RecordingConnector>(status, std::chrono::milliseconds(delayMs));
    }
    const vemo::VemoStatus started = vemo::ipc::ServiceHost::getInstance()->start(connector);
    if (started != vemo::kVemoStatusOk) {
        return started;
    }
    for (;;) {
        pause();
    }
}
