#include "fact/tdp/TdpSignal.h"

namespace fact {
namespace tdp {

constexpr int32_t TdpSignal::kStateNone;
constexpr int32_t TdpSignal::kStateOn;
constexpr int32_t TdpSignal::kStateOff;
constexpr int32_t TdpSignal::kStateStored;
constexpr int32_t TdpSignal::kLowestPriority;

TdpSignal::~TdpSignal() = default;

}  // namespace tdp
}  // namespace fact
