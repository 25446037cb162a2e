#include "fact/tdp/TdpClock.h"

namespace fact {
namespace tdp {
namespace {
class SteadyClock : public TdpClock {
  public:
    TdpTimePoint now() const override { return std::chrono::steady_clock::now(); }
};
}  // namespace

TdpClock::~TdpClock() = default;

const TdpClock& TdpClock::steady() {
    static const SteadyClock clock;
    return clock;
}

}  // namespace tdp
}  // namespace fact
