#pragma once
// One named signal of the telemetry data producer with the time it was seen,
// its state and its rank in the configured output priority list. Used both
// for the storage's last signal and, through TdpStickySignal, for the sticky
// signals; getOutputSignal() hands out copies.
//
// A plain value: not synchronised, copy it freely.

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

namespace fact {
namespace tdp {

// Signal times are steady-clock points in signed 64-bit nanoseconds on every
// target (long is 32 bits on the device).
using TdpTimePoint = std::chrono::steady_clock::time_point;
static_assert(sizeof(TdpTimePoint::rep) == 8 && std::is_signed<TdpTimePoint::rep>::value,
              "signal times need signed 64-bit ticks");
static_assert(std::is_same<TdpTimePoint::period, std::nano>::value,
              "signal times are counted in nanoseconds");

class TdpSignal {
  public:
    static constexpr int32_t kStateNone = 0;
    static constexpr int32_t kStateOn = 1;
    static constexpr int32_t kStateOff = 2;
    static constexpr int32_t kStateStored = 3;
    static constexpr int32_t kLowestPriority = std::numeric_limits<int32_t>::max();

    TdpSignal() = default;
    TdpSignal(std::string name, TdpTimePoint time, int32_t state, int32_t priority)
        : name(std::move(name)), time(time), state(state), priority(priority) {}
    TdpSignal(const TdpSignal&) = default;
    TdpSignal& operator=(const TdpSignal&) = default;
    TdpSignal(TdpSignal&&) = default;
    TdpSignal& operator=(TdpSignal&&) = default;
    virtual ~TdpSignal();

    std::string name;
    TdpTimePoint time = TdpTimePoint::min();
    int32_t state = kStateNone;
    // Index in the "output_priority" list; smaller is more important.
    int32_t priority = kLowestPriority;
};

}  // namespace tdp
}  // namespace fact
