// Process entry of vemod: wires the daemon object, its stop signals and its
// main loop; all logic lives in the libraries.

#include "common/VemoLogger.h"
#include "daemon/StopSignalWatcher.h"
#include "daemon/VemoDaemon.h"

namespace {
const vemo::VemoLogger logger("VemodMain");
}

int main() {
    std::unique_ptr<vemo::VemoDaemon> daemon = vemo::VemoDaemon::make_unique();
    // First, so that every thread set-up creates inherits the blocked signals.
    vemo::StopSignalWatcher watcher([&daemon](int) { daemon->stop(); });

    const vemo::VemoStatus status = daemon->setup();
    if (status != 0) {
        logger.e("%s:Fail to setup the vemod, error: %d", "main", status);
    } else {
        daemon->run();
    }
    return status != 0 ? 1 : 0;
}
