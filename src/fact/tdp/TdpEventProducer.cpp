#include "fact/tdp/TdpEventProducer.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <stdexcept>

#include "common/DeviceInfo.h"
#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpEventProducer"};
constexpr int64_t kNanosPerSecond = 1000000000;

using EventWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void writeString(EventWriter& writer, const std::string& text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void addAttribute(EventWriter& writer, const char* key, const std::string& value) {
    writer.StartObject();
    writer.Key("key");
    writer.String(key);
    writer.Key("value");
    writeString(writer, value);
    writer.EndObject();
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

std::string TdpEventProducer::produceEvent(const std::string& dataProducer,
                                           const std::unique_ptr<TdpSignalHandler>& handler,
                                           const std::unique_ptr<TdpSignalStorage>& storage,
                                           TdpTimePoint now) const {
    logger.d("%s:TdpEventProducer::produceEvent", "produceEvent");
    const std::string& ucid = handler->getUcid();
    if (ucid.empty()) {
        logger.d("%s:No UCID available for producing an event.", "produceEvent");
        return std::string();
    }
    const TdpSignal signal = storage->getOutputSignal();
    if (signal.state == TdpSignal::kStateNone) {
        FactHeartbeatMetric::GetInstance().addCount("TdpEventNoDataErrorCount");
        return std::string();
    }
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
    // Written straight out, member by member: the text is the same as
    // building the document and writing it, without the document.
    rapidjson::StringBuffer buffer(nullptr, 512);
    EventWriter writer(buffer);
    writer.StartObject();
    writer.Key("data_producer");
    writeString(writer, dataProducer);
    writer.Key("attributes");
    writer.StartArray();
    addAttribute(writer, "device_type", deviceType);
    addAttribute(writer, "locale", locale);
    addAttribute(writer, "homecard_uuid", ucid);
    addAttribute(writer, "sensor_output", signal.name);
    addAttribute(writer, "time_delta_seconds", std::to_string(timeDeltaSeconds(signal, now)));
    writer.EndArray();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace tdp
}  // namespace fact
