// A process hosting the daemon's binder service over a RecordingConnector,
// for cross-process tests and vemoctl's end-to-end tests. It runs until
// killed.
//
//   flgr_test_service [--no-connector] [--status N] [--delay-ms N]
//
// Every connector call is written to stderr as one line; the host's own log
// line "start:addedBinderService, ..." says the service is published.

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "RecordingConnector.h"
#include "ipc/ServiceHost.h"

namespace {

void writeLine(const std::string& text) {
    const std::string line = text + "\n";
    // One write per line keeps lines whole when binder threads write at once.
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    (void)written;
}

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
    std::shared_ptr<vemo::test::RecordingConnector> connector;
    if (withConnector) {
        connector = std::make_shared<vemo::test::RecordingConnector>(
            status, writeLine, std::chrono::milliseconds(delayMs));
    }
    const vemo::VemoStatus started = vemo::ipc::ServiceHost::getInstance()->start(connector);
    if (started != vemo::kVemoStatusOk) {
        return started;
    }
    for (;;) {
        pause();
    }
}
