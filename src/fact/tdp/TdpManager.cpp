#include "fact/tdp/TdpManager.h"

#include <fact/fact_api.h>

#include "common/VemoLogger.h"
#include "fact/CampaignSchemaProvider.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/JsonUtils.h"
#include "fact/tdp/TdpConfigSchema.h"
#include "fact/tdp/TdpJson.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpManager"};
}  // namespace

constexpr const char* TdpManager::kDataProducer;
constexpr size_t TdpManager::kMaxConfigBytes;

int telemetryDataProducerLoadConfig(const char* dataProducer, const char* config) {
    return TdpManager::GetInstance().loadDataProducerConfig(
        dataProducer == nullptr ? std::string() : std::string(dataProducer),
        config == nullptr ? std::string() : std::string(config));
}

TdpManager& TdpManager::GetInstance() {
    static TdpManager instance(TdpClock::steady(), &factDataProducerAdapter_SendEvent);
    return instance;
}

TdpManager::TdpManager(const TdpClock& clock, EventSender sender)
    : dataProducer_(kDataProducer),
      clock_(clock),
      sender_(std::move(sender)),
      storage_(new TdpSignalStorage),
      handler_(new TdpSignalHandler) {
    logger.d("%s:TdpManager::TdpManager()", "TdpManager");
}

void TdpManager::connect() {
    logger.d("%s:TdpManager::connect()", "connect");
    connected_ = true;
    const fact_status_t status = factDataProducerAdapter_SetConfigurationCallback(
        dataProducer_.c_str(), &telemetryDataProducerLoadConfig);
    if (status != 0) {
        logger.e("%s:Could not register the configuration callback, %d.", "connect",
                 static_cast<int>(status));
    }
}

TdpManager::EcsCallback TdpManager::getEcsCallback() {
    return [this](const std::string& json) { handleEcsEvent(json); };
}

int TdpManager::loadDataProducerConfig(const std::string& dataProducer, const std::string& config) {
    logger.d("%s:TdpManager::loadDataProducerConfig", "loadDataProducerConfig");
    if (dataProducer != dataProducer_) {
        logger.d("%s:Was not sent a data producer config meant for %s: %s",
                 "loadDataProducerConfig", dataProducer_.c_str(), dataProducer.c_str());
        return 1;
    }
    if (config.empty() || config == "{}") {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            handler_->resetConfig();
            storage_->resetStorage();
            enabled_ = false;
        }
        logger.d("%s:Disabling Telemetry Data Producer due to empty configuration.",
                 "loadDataProducerConfig");
        return 0;
    }
    // Parsing and validation touch no state, so they run outside the lock.
    if (config.size() > kMaxConfigBytes) {
        logger.e("%s:Configuration too large: %zu bytes (limit %zu)", "loadDataProducerConfig",
                 config.size(), kMaxConfigBytes);
        return 1;
    }
    const rapidjson::Document document = parseJson(config);
    if (document.HasParseError()) {
        logger.e("%s:Could not parse json: %s", "loadDataProducerConfig", config.c_str());
        return 1;
    }
    if (json::TooDeep(document)) {
        logger.e("%s:Configuration nests deeper than %d levels", "loadDataProducerConfig",
                 json::kMaxDepth);
        return 1;
    }
    const json::ArrayItems items = json::CountArrayItems(document);
    if (items.longest > CampaignSchemaProvider::kMaxArrayItems ||
        items.total > CampaignSchemaProvider::kMaxTotalArrayItems) {
        logger.e(
            "%s:Configuration has too many array items (longest %zu, total %zu; limits %zu, "
            "%zu)",
            "loadDataProducerConfig", items.longest, items.total,
            CampaignSchemaProvider::kMaxArrayItems, CampaignSchemaProvider::kMaxTotalArrayItems);
        return 1;
    }
    TdpConfigSchema::Failure failure;
    switch (TdpConfigSchema::validate(config, failure)) {
        case TdpConfigSchema::Result::kValid:
            break;
        case TdpConfigSchema::Result::kSchemaUnusable:
            return 1;
        case TdpConfigSchema::Result::kInvalid:
            logger.e("%s:Invalid schema: %s", "loadDataProducerConfig",
                     failure.schemaPointer.c_str());
            logger.e("%s:Invalid keyword: %s", "loadDataProducerConfig", failure.keyword.c_str());
            logger.e("%s:Invalid document: %s", "loadDataProducerConfig",
                     failure.documentPointer.c_str());
            return 1;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (handler_->loadDataProducerConfig(config) && storage_->loadDataProducerConfig(config)) {
            if (handler_->getEventReceived()) {
                // Sticky signals start from the device's present state.
                storage_->updateSignals(handler_->getSignalStorageInitVector(), clock_.now(), true);
            }
            enabled_ = true;
            return 0;
        }
        handler_->resetConfig();
        storage_->resetStorage();
        enabled_ = false;
    }
    logger.e("%s:Could not set configuration: %s", "loadDataProducerConfig", config.c_str());
    return 1;
}

void TdpManager::handleEcsEvent(const std::string& json) {
    logger.d("%s:TdpManager::handleEcsEvent()", "handleEcsEvent");
    std::string event;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Read under the lock so that event times follow processing order.
        const TdpTimePoint now = clock_.now();
        const bool receivedBefore = handler_->getEventReceived();
        std::vector<std::string> signals = handler_->processEcsEvent(json);
        if (!receivedBefore && handler_->getEventReceived()) {
            storage_->updateSignals(handler_->getSignalStorageInitVector(), now, true);
        }
        storage_->updateSignals(std::move(signals), now, false);
        if (handler_->getDataEventTriggered()) {
            if (enabled_) {
                event = producer_.produceEvent(dataProducer_, handler_, storage_, now);
            }
            handler_->clearDataEventTriggered();
        }
    }
    if (!event.empty()) {
        sendEvent(event);
    }
}

void TdpManager::sendEvent(const std::string& event) {
    logger.d("%s:TdpManager::sendEvent() - %s", "sendEvent", event.c_str());
    if (!connected_ || !sender_) {
        return;
    }
    const uint32_t result = sender_(dataProducer_.c_str(), event.c_str());
    if (result != 0) {
        FactHeartbeatMetric::GetInstance().addCount("TdpSendEventErrorCount");
        logger.e("%s:Failed to send data event, %d.", "sendEvent", static_cast<int>(result));
    }
}

void TdpManager::publishCapability() {
    logger.d("%s:TdpManager::publishCapability()", "publishCapability");
}

bool TdpManager::isEnabled() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return enabled_;
}

TdpSignal TdpManager::currentOutputSignal() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return storage_->getOutputSignal();
}

}  // namespace tdp
}  // namespace fact
