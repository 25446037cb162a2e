#include "fact/tdp/TdpEventProducer.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <stdexcept>

#include "common/DeviceInfo.h"
#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpJson.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpEventProducer"};
constexpr int64_t kNanosPerSecond = 1000000000;

void addAttribute(rapidjson::Value& attributes, const char* key, const std::string& value,
                  rapidjson::Document::AllocatorType& allocator) {
    rapidjson::Value entry(rapidjson::kObjectType);
    entry.AddMember("key", rapidjson::StringRef(key), allocator);
    entry.AddMember("value", rapidjson::Value(value, allocator), allocator);
    attributes.PushBack(entry, allocator);
}
}  // namespace

TdpEventProducer::TdpEventProducer() {
    logger.d("%s:TdpEventProducer::TdpEventProducer()", "TdpEventProducer");
}

int64_t TdpEventProducer::timeDeltaSeconds(const TdpSignal& signal, TdpTimePoint now) {
    if (signal.state == TdpSignal::kStateOn) {
        return 0;
    }
    // Times come from outside the storage too (tests, clock seams), so the
    // difference saturates instead of overflowing.
    int64_t nanos = 0;
    if (__builtin_sub_overflow(static_cast<int64_t>(signal.time.time_since_epoch().count()),
                               static_cast<int64_t>(now.time_since_epoch().count()), &nanos)) {
        nanos = signal.time > now ? INT64_MAX : INT64_MIN;
    }
    return nanos / kNanosPerSecond;
}

std::string TdpEventProducer::produceEvent(std::string dataProducer,
                                           const std::unique_ptr<TdpSignalHandler>& handler,
                                           const std::unique_ptr<TdpSignalStorage>& storage,
                                           TdpTimePoint now) const {
    logger.d("%s:TdpEventProducer::produceEvent", "produceEvent");
    const std::string ucid = handler->getUcid();
    if (ucid.empty()) {
        logger.d("%s:No UCID available for producing an event.", "produceEvent");
        return std::string();
    }
    const TdpSignal signal = storage->getOutputSignal();
    if (signal.state == TdpSignal::kStateNone) {
        FactHeartbeatMetric::GetInstance().addCount("TdpEventNoDataErrorCount");
        return std::string();
    }
    const std::string delta = std::to_string(timeDeltaSeconds(signal, now));

    rapidjson::Document document(nullptr, 1024);
    document.SetObject();
    auto& allocator = document.GetAllocator();
    document.AddMember("data_producer", rapidjson::Value(dataProducer, allocator), allocator);

    std::string deviceType;
    std::string locale;
    try {
        auto info = vemo::DeviceInfo::getImpl();
        deviceType = info->getType();
        locale = info->getLocale();
    } catch (const std::exception& e) {
        FactHeartbeatMetric::GetInstance().addCount("TdpDeviceInfoErrorCount");
        logger.e("%s:%s", "produceEvent", e.what());
        return std::string();
    }

    rapidjson::Value attributes(rapidjson::kArrayType);
    addAttribute(attributes, "device_type", deviceType, allocator);
    addAttribute(attributes, "locale", locale, allocator);
    addAttribute(attributes, "homecard_uuid", ucid, allocator);
    addAttribute(attributes, "sensor_output", signal.name, allocator);
    addAttribute(attributes, "time_delta_seconds", delta, allocator);
    document.AddMember("attributes", attributes, allocator);
    return writeJson(document);
}

}  // namespace tdp
}  // namespace fact
