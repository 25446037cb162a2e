#include "Estimator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vemo {
namespace cloud {

namespace {

std::string format(const char* fmt, double value) {
    char text[160];
    std::snprintf(text, sizeof text, fmt, value);
    return text;
}

}  // namespace

Estimator::Estimator(double epsilon, int32_t cohortSize)
    : epsilon_(epsilon), cohortSize_(cohortSize) {}

ItemEstimate Estimator::estimate(const std::vector<uint32_t>& counts,
                                 const std::vector<std::string>& labels, int64_t uploads) const {
    ItemEstimate item;
    for (const uint32_t c : counts) {
        item.reports += c;
    }
    const double length = static_cast<double>(counts.size());
    const double reports = static_cast<double>(item.reports);
    PrivacyAccounting& privacy = item.privacy;
    privacy.epsilon = epsilon_;
    privacy.cohortSize = cohortSize_;
    privacy.effectiveEpsilon =
        cohortSize_ > 0 ? epsilon_ * std::sqrt(static_cast<double>(cohortSize_)) : 0.0;
    privacy.reportsPerDevice = uploads > 0 ? reports / static_cast<double>(uploads) : 0.0;

    const bool randomised = counts.size() >= 2 && cohortSize_ != 0;
    const double effective = epsilon_ * std::sqrt(static_cast<double>(std::max(cohortSize_, 0)));
    privacy.noNoise = !randomised || effective > kNoNoiseEpsilon;
    const bool informative = !randomised || effective > 0;
    if (!randomised) {
        privacy.warnings.push_back(
            "reports are not randomised (fewer than 2 bins or cohort_size 0): counts are exact");
    } else if (!informative) {
        privacy.warnings.push_back(
            "effective epsilon is not positive: every report is uniform noise, nothing can be "
            "estimated");
    } else if (effective > kNegligibleNoiseEpsilon) {
        privacy.warnings.push_back(
            format("effective epsilon %.4g is above 10: the noise is negligible", effective));
    }

    const double e = privacy.noNoise ? 0.0 : std::exp(effective);
    double widest = 0;
    for (size_t j = 0; j < counts.size(); ++j) {
        BinEstimate bin;
        bin.label = j < labels.size() ? labels[j] : std::to_string(j);
        bin.noisyCount = counts[j];
        const double c = static_cast<double>(counts[j]);
        if (privacy.noNoise) {
            bin.estimate = c;
        } else if (!informative) {
            bin.estimable = false;
        } else {
            bin.estimate = ((e + length - 1) * c - reports) / (e - 1);
            const double n = std::max(bin.estimate, 0.0);
            const double variance =
                reports * (e + length - 2) / ((e - 1) * (e - 1)) + n * (length - 2) / (e - 1);
            bin.standardError = std::sqrt(std::max(variance, 0.0));
        }
        bin.low = bin.estimate - kZ95 * bin.standardError;
        bin.high = bin.estimate + kZ95 * bin.standardError;
        widest = std::max(widest, bin.high - bin.low);
        item.bins.push_back(std::move(bin));
    }
    if (informative && !privacy.noNoise && item.reports > 0 && widest > reports) {
        privacy.warnings.push_back(
            format("the 95%% intervals are wider than the data (%.0f reports): more devices or "
                   "a larger epsilon are needed",
                   reports));
    }
    return item;
}

}  // namespace cloud
}  // namespace vemo
