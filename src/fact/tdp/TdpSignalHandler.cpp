#include "fact/tdp/TdpSignalHandler.h"

#include <algorithm>

#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/StackDocument.h"
#include "fact/tdp/TdpJson.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpSignalHandler"};
const char kEventErrorCount[] = "TdpUnifiedSensingEventErrorCount";
const char kChangedSuffix[] = "_CHANGED";

std::string text(const rapidjson::Value& value) {
    return std::string(value.GetString(), value.GetStringLength());
}
}  // namespace

constexpr int TdpSignalHandler::kMaxDepth;
constexpr int TdpSignalHandler::kMaxSignals;
constexpr std::size_t TdpSignalHandler::kMaxEventBytes;
constexpr std::size_t TdpSignalHandler::kMaxKeys;

TdpSignalHandler::TdpSignalHandler() {
    keyStates_.max_load_factor(1.0f);
    logger.d("%s:TdpSignalHandler::TdpSignalHandler()", "TdpSignalHandler");
}

void TdpSignalHandler::resetConfig() {
    emitCriteria_.clear();
    dataEventTriggered_ = false;
}

bool TdpSignalHandler::loadDataProducerConfig(const std::string& json) {
    logger.d("%s:TdpSignalStorage::loadDataProducerConfig", "loadDataProducerConfig");
    resetConfig();
    rapidjson::Document document = parseJson(json);
    if (document.HasParseError()) {
        logger.e(
            "%s:TdpSignalHandler::loadDataProducerConfig has a parse error, failed to "
            "configure.",
            "loadDataProducerConfig");
        return false;
    }
    if (!document.IsObject()) {
        return true;
    }
    auto events = document.FindMember("ecs_sensory_events");
    if (events == document.MemberEnd() || !events->value.IsObject()) {
        return true;
    }
    auto criteria = events->value.FindMember("event_emit_criteria");
    if (criteria == events->value.MemberEnd() || !criteria->value.IsArray()) {
        return true;
    }
    for (const auto& item : criteria->value.GetArray()) {
        if (item.IsString()) {
            emitCriteria_.push_back(upperCase(text(item)));
        }
    }
    return true;
}

std::vector<std::string> TdpSignalHandler::processEcsEvent(const std::string& json) {
    logger.d("%s:TdpSignalStorage::processEcsEvent", "processEcsEvent");
    std::vector<std::string> signals;
    if (json.size() > kMaxEventBytes) {
        logger.e("%s:ECS event of %zu bytes is larger than %zu bytes, dropped.", "processEcsEvent",
                 json.size(), kMaxEventBytes);
        FactHeartbeatMetric::GetInstance().addCount(kEventErrorCount);
        return signals;
    }
    StackDocument stack;
    rapidjson::Document& document = stack.get();
    document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    // An ECS event is an object of state keys; any other JSON is as useless
    // as text that does not parse.
    if (document.HasParseError() || !document.IsObject()) {
        logger.e("%s:TdpSignalStorage::processEcsEvent() - ECS event JSON could not be parsed",
                 "processEcsEvent");
        FactHeartbeatMetric::GetInstance().addCount(kEventErrorCount);
        return signals;
    }
    keysRefused_ = 0;
    std::string key;
    for (const auto& member : document.GetObject()) {
        key.clear();
        if (!processNestedEcsState(key, member, signals, 0)) {
            logger.e(
                "%s:TdpSignalStorage::processEcsEvent() - ECS event json either had too many "
                "layers (more than %d) or too many signals (%d).",
                "processEcsEvent", kMaxDepth, kMaxSignals);
            signals.clear();
            FactHeartbeatMetric::GetInstance().addCount(kEventErrorCount);
            return signals;
        }
    }
    if (keysRefused_ > 0) {
        logger.w("%s:%zu new ECS keys not remembered, already %zu keys.", "processEcsEvent",
                 keysRefused_, kMaxKeys);
    }
    eventReceived_ = true;
    return signals;
}

bool TdpSignalHandler::processNestedEcsState(std::string& key,
                                             const rapidjson::Value::Member& member,
                                             std::vector<std::string>& signals, int depth) {
    if (depth > kMaxDepth || signals.size() > static_cast<size_t>(kMaxSignals)) {
        return false;
    }
    const size_t parentLength = key.size();
    if (parentLength != 0) {
        key += '_';
    }
    key.append(member.name.GetString(), member.name.GetStringLength());
    const rapidjson::Value& value = member.value;
    if (value.IsString() || value.IsArray()) {
        submitNewState(key, value, signals);
    } else if (value.IsObject()) {
        // A too-deep or overflowing branch below the top level is skipped
        // without failing the event; only the top level decides that.
        for (const auto& nested : value.GetObject()) {
            processNestedEcsState(key, nested, signals, depth + 1);
        }
    } else {
        logger.d("%s:Unknown Event value type, skipping.", "processNestedEcsState");
    }
    key.resize(parentLength);
    return true;
}

void TdpSignalHandler::submitNewState(const std::string& key, const rapidjson::Value& raw,
                                      std::vector<std::string>& signals) {
    std::string& value = value_;
    if (raw.IsString()) {
        value.assign(raw.GetString(), raw.GetStringLength());
    } else {
        value.clear();
        bool first = true;
        for (const auto& item : raw.GetArray()) {
            if (!item.IsString()) {
                return;
            }
            if (!first) {
                value += ',';
            }
            value.append(item.GetString(), item.GetStringLength());
            first = false;
        }
    }
    if (key == "ucids") {
        ucids_ = value;
    }
    auto it = keyStates_.find(key);
    if (it != keyStates_.end()) {
        if (it->second != value) {
            addSignal(upperCase(key + "_" + value), signals);
            addSignal(upperCase(key + kChangedSuffix), signals);
            it->second = value;
        }
    } else if (keyStates_.size() < kMaxKeys) {
        keyStates_.emplace(key, value);
    } else {
        ++keysRefused_;
    }
}

void TdpSignalHandler::addSignal(std::string signal, std::vector<std::string>& signals) {
    if (std::find(emitCriteria_.begin(), emitCriteria_.end(), signal) != emitCriteria_.end()) {
        dataEventTriggered_ = true;
    }
    signals.push_back(std::move(signal));
}

std::vector<std::string> TdpSignalHandler::getSignalStorageInitVector() const {
    std::vector<std::string> result;
    result.reserve(keyStates_.size() * 2);
    for (const auto& state : keyStates_) {
        result.push_back(upperCase(state.first + "_" + state.second));
        result.push_back(upperCase(state.first + kChangedSuffix));
    }
    return result;
}

}  // namespace tdp
}  // namespace fact
