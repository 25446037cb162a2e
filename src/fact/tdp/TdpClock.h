#pragma once
// Where the telemetry producer reads the time of an ECS event. Signal times
// and "time_delta_seconds" come from it, so tests drive a scripted clock and
// get exact deltas without sleeping.
//
// Implementations must be callable from any thread.

#include "fact/tdp/TdpSignal.h"

namespace fact {
namespace tdp {

class TdpClock {
  public:
    virtual ~TdpClock();
    virtual TdpTimePoint now() const = 0;

    // The process's steady clock (a process-lifetime object).
    static const TdpClock& steady();
};

}  // namespace tdp
}  // namespace fact
