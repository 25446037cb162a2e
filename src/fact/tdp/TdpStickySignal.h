#pragma once
// A sticky signal: switched on by any of its start transitions (ECS signal
// names such as "ALARM_STARTED") and kept on until one of its end transitions
// switches it off. While on, it is the producer's output signal (unless a more
// important sticky signal is on too); once off it is stored as the last signal.
//
// Owned by TdpSignalStorage; not synchronised.

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "fact/tdp/TdpSignal.h"

namespace fact {
namespace tdp {

class TdpStickySignal : public TdpSignal {
  public:
    TdpStickySignal() = default;

    // Takes the name and the "start_transition" and "end_transition" arrays of
    // one "sticky_signal_config" member (already schema-checked). False when an
    // end transition repeats a start transition: such a signal could never
    // stay on.
    bool configStickySignal(const rapidjson::Value& config, const std::string& name);

    // Switches the signal on when `signal` is a start transition and it is not
    // on already. True only when it was switched on and had been switched
    // before (the first switch-on after configuration gives false).
    bool triggerTransitionOn(const std::string& signal);

    // Switches the signal off when `signal` is an end transition and it is not
    // off already. True when it was switched off and had been switched before,
    // which is when the storage keeps it as the last signal. `now` is the time
    // of the event (the storage records it).
    bool triggerTransitionOff(const std::string& signal, TdpTimePoint now);

    const std::vector<std::string>& startTransitions() const { return startTransitions_; }
    const std::vector<std::string>& endTransitions() const { return endTransitions_; }

  private:
    std::vector<std::string> startTransitions_;
    std::vector<std::string> endTransitions_;
};

}  // namespace tdp
}  // namespace fact
