#pragma once
// Builds the analytics input event that the telemetry producer sends: the
// data producer's name and five text attributes, "device_type" and "locale"
// (from DeviceInfo), "homecard_uuid" (the handler's UCID list),
// "sensor_output" (the storage's output signal) and "time_delta_seconds"
// (whole seconds from `now` to the output signal's time; 0 while a sticky
// signal is on).
//
// Stateless and const; owned by TdpManager and run on its calling thread.

#include <memory>
#include <string>

#include "fact/tdp/TdpSignal.h"
#include "fact/tdp/TdpSignalHandler.h"
#include "fact/tdp/TdpSignalStorage.h"

namespace fact {
namespace tdp {

class TdpEventProducer {
  public:
    TdpEventProducer();

    // The event as compact JSON text, or empty when nothing is to be sent: no
    // UCID yet, no output signal yet ("TdpEventNoDataErrorCount"), or device
    // facts unavailable ("TdpDeviceInfoErrorCount").
    std::string produceEvent(const std::string& dataProducer,
                             const std::unique_ptr<TdpSignalHandler>& handler,
                             const std::unique_ptr<TdpSignalStorage>& storage,
                             TdpTimePoint now) const;

    // The "time_delta_seconds" value of a signal at `now`, truncated toward
    // zero.
    static int64_t timeDeltaSeconds(const TdpSignal& signal, TdpTimePoint now);
};

}  // namespace tdp
}  // namespace fact
