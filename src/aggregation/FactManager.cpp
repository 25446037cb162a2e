#include "aggregation/FactManager.h"

#include <fact/fact_api.h>

#include <fstream>

#include "common/DevicePaths.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace {
const VemoLogger logger("FactManager");
}

constexpr const char FactManager::kUnifiedSensingService[];
constexpr const char FactManager::kFactOrvuManager[];

void FactManager::registerUnifiedSensingCallback(std::function<void(const std::string&)> callback) {
    unifiedSensingCallback_ = std::move(callback);
}

void FactManager::startupCampaign() {
    std::ifstream file(paths::hostPath(paths::kCampaignConfig));
    if (!file.is_open()) {
        return;
    }
    std::string path;
    std::getline(file, path, std::use_facet<std::ctype<char>>(file.getloc()).widen('\n'));
    file.close();
    startCampaign(path.c_str());
}

void FactManager::startCampaign(const char* path) {
    logger.i("%s:Creating campaign with path '%s'", "startCampaign", path);
    const fact_status_t status = fact_CreateCampaign(paths::hostPath(path).c_str());
    if (status != 0) {
        logger.e("%s:Failed to create campaign from path %s with error code %d", "startCampaign",
                 path, static_cast<int>(status));
    }
    std::ofstream file(paths::hostPath(paths::kCampaignConfig), std::ios::out | std::ios::trunc);
    if (!file.is_open()) {
        logger.e("%s:Failed to open default config file: %s", "startCampaign",
                 paths::kCampaignConfig);
        return;
    }
    file << path;
    file.close();
    logger.i("%s:Wrote new campaign path %s to default file path %s", "startCampaign", path,
             paths::kCampaignConfig);
}

VemoStatus FactManager::factRequest(const std::string& client, const std::string& dataProducer,
                                    const std::string& payload) {
    logger.d("%s:New factRequest from client '%s' and data producer '%s'", "factRequest",
             client.c_str(), dataProducer.c_str());
    if (dataProducer == kUnifiedSensingService) {
        if (unifiedSensingCallback_) {
            unifiedSensingCallback_(payload);
        }
    } else if (dataProducer == kFactOrvuManager) {
        startCampaign(payload.c_str());
    } else {
        logger.d("%s:FACT request not yet implemented. Message sent by '%s'. Returning OK",
                 "factRequest", dataProducer.c_str());
    }
    return kVemoStatusOk;
}

}  // namespace vemo
