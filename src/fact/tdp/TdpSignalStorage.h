#pragma once
// The state behind the telemetry producer's output signal: the sticky
// signals in "output_priority" order, the passthrough table (ECS signal name
// to the output signal it is reported as) and the last signal seen. The
// signal handler's ECS signal names go in through updateSignals(); the event
// producer takes the signal to report from getOutputSignal().
//
// A configuration load either succeeds completely or leaves the storage
// empty. Not synchronised: TdpManager serialises every call on its mutex.

#include <rapidjson/document.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "fact/tdp/TdpSignal.h"
#include "fact/tdp/TdpStickySignal.h"

namespace fact {
namespace tdp {

class TdpSignalStorage {
  public:
    struct PassthroughEntry {
        std::string outputSignal;
        int32_t priority;
    };

    TdpSignalStorage();

    // Empties the sticky signals and the passthrough table and sets the last
    // signal back to its defaults.
    void resetStorage();

    // Configures everything from the producer configuration's
    // "ecs_sensory_events". False (storage left empty) on any fault.
    bool loadDataProducerConfig(const std::string& json);
    // The two steps of the above, given the "output_priority" array and the
    // "sticky_signal_config" or "passthrough_config" object.
    bool loadStickyConfig(const rapidjson::Value& priority, const rapidjson::Value& stickyConfig);
    bool loadPassthroughConfig(const rapidjson::Value& priority,
                               const rapidjson::Value& passthroughConfig);

    // Applies the ECS signal names of one event seen at `now`. With `initial`
    // (re-seeding from remembered device state) only the sticky states change;
    // the last signal is left alone.
    void updateSignals(std::vector<std::string> signals, TdpTimePoint now, bool initial);

    // Offers a candidate for the last signal: later times win, at equal times
    // the more important (smaller) priority wins, a full tie keeps the old one.
    void updateLastSignal(const std::string& name, int priority, TdpTimePoint time);

    // The most important sticky signal that is on (state on, default time and
    // priority), else a copy of the last signal (state none when nothing was
    // stored yet).
    TdpSignal getOutputSignal() const;

    const std::vector<TdpStickySignal>& stickySignals() const { return stickySignals_; }
    const std::unordered_map<std::string, PassthroughEntry>& passthrough() const {
        return passthrough_;
    }
    const TdpSignal& lastSignal() const { return lastSignal_; }

  private:
    bool loadEcsSensoryEvents(const rapidjson::Value& events);

    std::vector<TdpStickySignal> stickySignals_;
    std::unordered_map<std::string, PassthroughEntry> passthrough_;
    TdpSignal lastSignal_;
};

}  // namespace tdp
}  // namespace fact
