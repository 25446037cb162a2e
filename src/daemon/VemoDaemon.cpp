#include "daemon/VemoDaemon.h"

#include <cstdio>

#include "common/DevicePaths.h"
#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpManager.h"

namespace vemo {
namespace {
const VemoLogger logger("VemoDaemon");
}

std::unique_ptr<VemoDaemon> VemoDaemon::make_unique() {
    return std::make_unique<VemoDaemon>();
}

VemoDaemon::VemoDaemon() = default;

VemoDaemon::~VemoDaemon() = default;

VemoStatus VemoDaemon::setup() {
    logger.i("%s:Configuring vemod", "setup");
    const std::string gradientFile = paths::hostPath(paths::kWakewordGradientFile);
    if (std::remove(gradientFile.c_str()) == 0) {
        logger.i("%s:Removed Wakeword gradient file on vemod startup", "setup");
    } else {
        logger.i("%s:Wakeword Gradient file does not exist, skipping initial cleanup", "setup");
    }
    logger.i("%s:Setup vemo service", "setup");

    // Creating the heartbeat starts its reporting thread; the first report
    // goes out at once.
    fact::FactHeartbeatMetric::GetInstance();

    // The telemetry producer takes its configuration from the analytics
    // library from now on; its ECS callback is handed on once the bridge that
    // receives device events exists.
    fact::tdp::TdpManager::GetInstance().connect();
    return kVemoStatusOk;
}

void VemoDaemon::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!stopRequested_) {
        running_ = true;
    }
    while (running_) {
        condition_.wait(lock);
    }
    logger.i("%s:Exiting run loop", "run");
}

void VemoDaemon::stop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopRequested_ = true;
    running_ = false;
    condition_.notify_all();
}

}  // namespace vemo
