#include "daemon/VemoDaemon.h"

#include <fact/fact_api.h>
#include <vemocore/vemo_core.h>

#include <cstdio>
#include <exception>

#include "aggregation/FlgrConnectorImpl.h"
#include "aggregation/VemoManager.h"
#include "common/DevicePaths.h"
#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpManager.h"
#include "fact/upload/DataIngestionClientWrapper.h"
#include "ipc/ServiceHost.h"
#include "tolmocomm/TolmoComm.h"

namespace vemo {
namespace {
const VemoLogger logger("VemoDaemon");
}

std::unique_ptr<VemoDaemon> VemoDaemon::make_unique() {
    return std::make_unique<VemoDaemon>();
}

VemoDaemon::VemoDaemon() : factManager_(std::make_shared<FactManager>()) {}

VemoDaemon::~VemoDaemon() {
    // The heartbeat, the manager and the upload client are function-local
    // statics destroyed in an order of their own; the threads that call into
    // them end here, first.
    if (managerCreated_) {
        tolmocomm::TolmoComm::getImpl().shutdown();
        fact::DataIngestionClientWrapper::getInstance().waitForUploads(
            fact::DataIngestionClientWrapper::kExitDrain);
    }
}

VemoStatus VemoDaemon::setup() {
    logger.i("%s:Configuring vemod", "setup");
    const std::string gradientFile = paths::hostPath(paths::kWakewordGradientFile);
    if (std::remove(gradientFile.c_str()) == 0) {
        logger.i("%s:Removed Wakeword gradient file on vemod startup", "setup");
    } else {
        logger.i("%s:Wakeword Gradient file does not exist, skipping initial cleanup", "setup");
    }
    logger.i("%s:Setup vemo service", "setup");

    const fact_status_t callbackStatus = factVemo_SetVectorCallback(&factVectorCallback);
    if (callbackStatus != 0) {
        logger.e("%s:Could not set FACT vector callback. Status = %d", "setup",
                 static_cast<int>(callbackStatus));
        return kVemoStatusSetupFailure;
    }

    // The manager announces the device to the cloud and owns the core's
    // handle; made here, it has registered the core's log callback before the
    // core's attributes are printed.
    try {
        VemoManager::getInstance();
        managerCreated_ = true;
    } catch (const std::exception& e) {
        logger.e("%s:Could not create the aggregation manager: %s", "setup", e.what());
        return kVemoStatusSetupFailure;
    }
    vemoLibPrintAttributes();

    std::shared_ptr<ipc::ServiceHost> host = ipc::ServiceHost::getInstance();
    std::shared_ptr<ipc::ServiceConnector> connector =
        std::make_shared<FlgrConnectorImpl>(factManager_);

    // Creating the heartbeat starts its reporting thread; the first report
    // goes out at once.
    fact::FactHeartbeatMetric::GetInstance();

    fact::tdp::TdpManager& tdp = fact::tdp::TdpManager::GetInstance();
    factManager_->registerUnifiedSensingCallback(tdp.getEcsCallback());
    tdp.connect();

    factManager_->startupCampaign();

    const VemoStatus hostStatus = host->start(connector);
    if (hostStatus != 0) {
        logger.e("%s:Could not start service connector/host IPC. Status = %d", "setup", hostStatus);
        return kVemoStatusSetupFailure;
    }
    return kVemoStatusOk;
}

void VemoDaemon::factVectorCallback(const int* vector, unsigned int length,
                                    const char* applicationId, const char* second) {
    // The analytics library always passes both texts; a null one is taken as
    // empty rather than trusted to crash.
    const std::string name(applicationId != nullptr ? applicationId : "");
    const std::string text(second != nullptr ? second : "");
    // The analytics library is plain C underneath: nothing may unwind into it.
    try {
        VemoManager::getInstance().handleFactVectorCallback(name, vector, length, text);
    } catch (const std::exception& e) {
        logger.e("%s:Vector not handed to the aggregation manager: %s", "factVectorCallback",
                 e.what());
    }
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
