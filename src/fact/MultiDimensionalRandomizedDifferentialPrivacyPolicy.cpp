#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

#include <cmath>
#include <cstdint>
#include <stdexcept>

#include "fact/FactHeartbeatMetric.h"
#include "fact/RandomBlock.h"

namespace fact {

MultiDimensionalRandomizedDifferentialPrivacyPolicy::
    MultiDimensionalRandomizedDifferentialPrivacyPolicy(DifferentialPrivacyConfig config)
    : mConfig(config) {}

int MultiDimensionalRandomizedDifferentialPrivacyPolicy::GetValueInRange(int min, int max) const {
    return getRandInt(min, max);
}

bool MultiDimensionalRandomizedDifferentialPrivacyPolicy::ForgeEvent(int length) const {
    if (length < 2 || mConfig.cohortSize == 0) {
        return false;
    }
    const double threshold = CalculateThreshold(length);
    return getRandDouble(0.0, 1.0) > threshold;
}

double MultiDimensionalRandomizedDifferentialPrivacyPolicy::CalculateThreshold(int length) const {
    const double e = std::exp(mConfig.epsilon * std::sqrt(static_cast<double>(mConfig.cohortSize)));
    const double d = e + length;
    if (d == 1.0) {
        FactHeartbeatMetric::GetInstance().addCount("DPErrorCount");
        throw std::invalid_argument(
            "std::exp(mConfig.epsilon * std::sqrt(mConfig.cohortSize)) + length should be not "
            "equalt to 1. Please check your DifferentialPrivayConfig match with CampaignSchema");
    }
    const double p = (e - 1) / (d - 1);
    if (p >= 1) {
        FactHeartbeatMetric::GetInstance().addCount("DPErrorCount");
        throw std::invalid_argument(
            "p should be less than 1. Please check your DifferentialPrivayConfig match with "
            "CampaignSchema");
    }
    return p;
}

int MultiDimensionalRandomizedDifferentialPrivacyPolicy::getRandInt(int min, int max) const {
    if (max <= min) {
        FactHeartbeatMetric::GetInstance().addCount("DPErrorCount");
        throw std::invalid_argument("Invalid range: max must be greater than min");
    }
    uint32_t u = 0;
    RandomBlock::fill(&u, sizeof u);
    // Unsigned arithmetic: the span of the full int range still fits.
    const uint32_t n = static_cast<uint32_t>(max) - static_cast<uint32_t>(min) + 1u;
    return static_cast<int>(static_cast<uint32_t>(min) + (n == 0 ? u : u % n));
}

double MultiDimensionalRandomizedDifferentialPrivacyPolicy::getRandDouble(double min,
                                                                          double max) const {
    if (max <= min) {
        throw std::invalid_argument("Invalid range: max must be greater than min");
    }
    uint64_t u = 0;
    RandomBlock::fill(&u, sizeof u);
    return min + (max - min) * (static_cast<double>(u) * 0x1p-64);
}

}  // namespace fact
