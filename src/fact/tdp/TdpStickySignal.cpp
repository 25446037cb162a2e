#include "fact/tdp/TdpStickySignal.h"

#include <algorithm>

#include "common/VemoLogger.h"

namespace fact {
namespace tdp {
namespace {
const vemo::VemoLogger logger{"TdpStickySignal"};

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

void appendStrings(const rapidjson::Value& config, const char* member,
                   std::vector<std::string>& out) {
    auto it = config.FindMember(member);
    if (it == config.MemberEnd() || !it->value.IsArray()) {
        return;
    }
    for (const auto& item : it->value.GetArray()) {
        if (item.IsString()) {
            out.emplace_back(item.GetString(), item.GetStringLength());
        }
    }
}
}  // namespace

bool TdpStickySignal::configStickySignal(const rapidjson::Value& config, const std::string& name) {
    logger.d("%s:TdpStickySignal::configStickySignal(%s)", "configStickySignal", name.c_str());
    this->name = name;
    if (!config.IsObject()) {
        return false;
    }
    appendStrings(config, "start_transition", startTransitions_);
    std::vector<std::string> ends;
    appendStrings(config, "end_transition", ends);
    for (auto& end : ends) {
        if (contains(startTransitions_, end)) {
            return false;
        }
        endTransitions_.push_back(std::move(end));
    }
    return true;
}

bool TdpStickySignal::triggerTransitionOn(const std::string& signal) {
    if (state == kStateOn || !contains(startTransitions_, signal)) {
        return false;
    }
    logger.d("%s:TdpStickySignal::triggerTransitionOn(%s), %s", "triggerTransitionOn",
             signal.c_str(), name.c_str());
    const int32_t previous = state;
    state = kStateOn;
    return previous != kStateNone;
}

bool TdpStickySignal::triggerTransitionOff(const std::string& signal, TdpTimePoint now) {
    if (state == kStateOff || !contains(endTransitions_, signal)) {
        return false;
    }
    logger.d("%s:TdpStickySignal::triggerTransitionOff(%s), %s", "triggerTransitionOff",
             signal.c_str(), name.c_str());
    const int32_t previous = state;
    state = kStateOff;
    time = now;
    return previous != kStateNone;
}

}  // namespace tdp
}  // namespace fact
