#include "fact/tdp/TdpSignalStorage.h"

#include <unordered_set>

#include "common/VemoLogger.h"
#include "fact/tdp/TdpJson.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpSignalStorage"};

std::string text(const rapidjson::Value& value) {
    return std::string(value.GetString(), value.GetStringLength());
}
}  // namespace

TdpSignalStorage::TdpSignalStorage() {
    logger.d("%s:TdpSignalStorage::TdpSignalStorage()", "TdpSignalStorage");
    passthrough_.max_load_factor(1.0f);
    resetStorage();
}

void TdpSignalStorage::resetStorage() {
    stickySignals_.clear();
    passthrough_.clear();
    lastSignal_ = TdpSignal();
}

bool TdpSignalStorage::loadDataProducerConfig(const std::string& json) {
    logger.d("%s:TdpSignalStorage::loadDataProducerConfig", "loadDataProducerConfig");
    rapidjson::Document document = parseJson(json);
    resetStorage();
    if (document.HasParseError() || !document.IsObject()) {
        logger.e("%s:TdpSignalStorage::loadDataProducerConfig - configuration is not a JSON object",
                 "loadDataProducerConfig");
        return false;
    }
    auto events = document.FindMember("ecs_sensory_events");
    if (events == document.MemberEnd() || !loadEcsSensoryEvents(events->value)) {
        resetStorage();
        return false;
    }
    return true;
}

bool TdpSignalStorage::loadEcsSensoryEvents(const rapidjson::Value& events) {
    // The schema check upstream makes these hold; the storage still refuses a
    // configuration without them instead of trusting every caller.
    static const char* const kMembers[] = {"output_priority", "sticky_signal_config",
                                           "passthrough_config"};
    for (const char* member : kMembers) {
        auto it = events.IsObject() ? events.FindMember(member) : events.MemberEnd();
        const bool wantArray = member == kMembers[0];
        if (!events.IsObject() || it == events.MemberEnd() ||
            (wantArray ? !it->value.IsArray() : !it->value.IsObject())) {
            logger.e("%s:TdpSignalStorage::loadDataProducerConfig - %s is missing or malformed",
                     "loadDataProducerConfig", member);
            return false;
        }
    }
    const rapidjson::Value& priority = events["output_priority"];
    return loadStickyConfig(priority, events["sticky_signal_config"]) &&
           loadPassthroughConfig(priority, events["passthrough_config"]);
}

bool TdpSignalStorage::loadStickyConfig(const rapidjson::Value& priority,
                                        const rapidjson::Value& stickyConfig) {
    logger.d("%s:TdpSignalStorage::loadDataProducerConfig - loading sticky signals",
             "loadStickyConfig");
    if (!priority.IsArray() || !stickyConfig.IsObject()) {
        return false;
    }
    std::unordered_set<std::string> configured;
    int32_t index = 0;
    for (const auto& entry : priority.GetArray()) {
        const int32_t i = index++;
        if (!entry.IsString()) {
            continue;
        }
        const std::string name = text(entry);
        auto member = stickyConfig.FindMember(entry);
        if (member == stickyConfig.MemberEnd() || configured.count(name) != 0) {
            continue;
        }
        TdpStickySignal sticky;
        if (!sticky.configStickySignal(member->value, name)) {
            logger.e(
                "%s:TdpSignalStorage::loadDataProducerConfig - Duplicate start/stop "
                "transition: %s",
                "loadStickyConfig", name.c_str());
            return false;
        }
        sticky.priority = i;
        stickySignals_.push_back(std::move(sticky));
        configured.insert(name);
    }
    for (const auto& member : stickyConfig.GetObject()) {
        const std::string name = text(member.name);
        if (configured.count(name) == 0) {
            logger.e("%s:TdpSignalStorage::loadDataProducerConfig - passthrough %s not in priority",
                     "loadStickyConfig", name.c_str());
            return false;
        }
    }
    return true;
}

bool TdpSignalStorage::loadPassthroughConfig(const rapidjson::Value& priority,
                                             const rapidjson::Value& passthroughConfig) {
    logger.d("%s:TdpSignalStorage::loadDataProducerConfig - configuring passthrough",
             "loadPassthroughConfig");
    if (!priority.IsArray() || !passthroughConfig.IsObject()) {
        return false;
    }
    std::unordered_map<std::string, int32_t> indexOf;
    int32_t index = 0;
    for (const auto& entry : priority.GetArray()) {
        if (entry.IsString()) {
            // The first occurrence decides, as for the sticky signals.
            indexOf.emplace(text(entry), index);
        }
        ++index;
    }
    for (const auto& member : passthroughConfig.GetObject()) {
        const std::string output = member.value.IsString() ? text(member.value) : std::string();
        auto it = indexOf.find(output);
        if (!member.value.IsString() || it == indexOf.end()) {
            logger.e("%s:TdpSignalStorage::loadDataProducerConfig - %s is not in priority",
                     "loadPassthroughConfig", output.c_str());
            return false;
        }
        passthrough_[text(member.name)] = PassthroughEntry{output, it->second};
    }
    return true;
}

void TdpSignalStorage::updateSignals(std::vector<std::string> signals, TdpTimePoint now,
                                     bool initial) {
    logger.d("%s:TdpSignalStorage::updateSignals()", "updateSignals");
    if (!initial) {
        for (const auto& signal : signals) {
            auto it = passthrough_.find(signal);
            if (it != passthrough_.end()) {
                logger.d("%s:TdpSignalStorage::updateSignals() - Found %s in passthrough",
                         "updateSignals", signal.c_str());
                updateLastSignal(it->second.outputSignal, it->second.priority, now);
            }
        }
    }
    for (auto& sticky : stickySignals_) {
        for (const auto& signal : signals) {
            sticky.triggerTransitionOn(signal);
        }
        for (const auto& signal : signals) {
            if (sticky.triggerTransitionOff(signal, now) && !initial) {
                logger.d(
                    "%s:TdpSignalStorage::updateSignals() - Storing sticky %s after turned off",
                    "updateSignals", sticky.name.c_str());
                updateLastSignal(sticky.name, sticky.priority, now);
            }
        }
    }
}

void TdpSignalStorage::updateLastSignal(const std::string& name, int priority, TdpTimePoint time) {
    if (lastSignal_.state != TdpSignal::kStateNone &&
        (lastSignal_.time > time ||
         (lastSignal_.time == time && lastSignal_.priority <= priority))) {
        return;
    }
    lastSignal_ = TdpSignal(name, time, TdpSignal::kStateStored, priority);
}

TdpSignal TdpSignalStorage::getOutputSignal() const {
    for (const auto& sticky : stickySignals_) {
        if (sticky.state == TdpSignal::kStateOn) {
            logger.d("%s:TdpSignalStorage::getOutputSignal(), %s is active", "getOutputSignal",
                     sticky.name.c_str());
            TdpSignal active;
            active.name = sticky.name;
            active.state = TdpSignal::kStateOn;
            return active;
        }
    }
    return lastSignal_;
}

}  // namespace tdp
}  // namespace fact
