#include "Estimator.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

namespace vemo {
namespace cloud {
namespace {

// Reports randomised by the device's own policy, estimated back: the 95%
// intervals must cover the truth about 95% of the time and the estimates
// must centre on it. The bounds sit five standard deviations out.
TEST(EstimatorTest, IntervalsCoverTheTruthAndEstimatesAreUnbiased) {
    const double epsilon = 0.5;
    const int32_t cohortSize = 4;  // effective epsilon 1: heavy noise
    const fact::MultiDimensionalRandomizedDifferentialPrivacyPolicy policy(
        {epsilon, cohortSize, 1});
    const std::vector<int> truth{300, 0, 250, 150, 100, 120, 50, 30};  // 1000 reports
    const int length = static_cast<int>(truth.size());
    const int repetitions = 100;
    const Estimator estimator(epsilon, cohortSize);

    int covered = 0;
    std::vector<double> estimateSum(truth.size(), 0);
    std::vector<double> varianceSum(truth.size(), 0);
    for (int r = 0; r < repetitions; ++r) {
        std::vector<uint32_t> counts(truth.size(), 0);
        for (int j = 0; j < length; ++j) {
            for (int k = 0; k < truth[j]; ++k) {
                const bool forge = policy.ForgeEvent(length);
                ++counts[forge ? policy.GetValueInRange(0, length - 1) : j];
            }
        }
        const ItemEstimate item = estimator.estimate(counts, {}, 10);
        ASSERT_EQ(item.reports, 1000);
        for (size_t j = 0; j < truth.size(); ++j) {
            const BinEstimate& b = item.bins[j];
            covered += (b.low <= truth[j] && truth[j] <= b.high) ? 1 : 0;
            estimateSum[j] += b.estimate;
            varianceSum[j] += b.standardError * b.standardError;
        }
    }
    const double intervals = repetitions * length;
    const double rate = covered / intervals;
    const double sd = std::sqrt(0.95 * 0.05 / intervals);
    EXPECT_NEAR(rate, 0.95, 5 * sd);
    for (size_t j = 0; j < truth.size(); ++j) {
        const double mean = estimateSum[j] / repetitions;
        const double standardErrorOfMean = std::sqrt(varianceSum[j] / repetitions / repetitions);
        EXPECT_NEAR(mean, truth[j], 5 * standardErrorOfMean) << "bin " << j;
    }
}

TEST(EstimatorTest, LimitsOfTheNoise) {
    struct Case {
        const char* name;
        double epsilon;
        int32_t cohortSize;
        std::vector<uint32_t> counts;
        bool noNoise;
        bool estimable;
        double firstEstimate;  // -1: not checked
        const char* warning;   // a substring of some warning, or ""
    };
    const Case cases[] = {
        {"one bin is never randomised", 0.5, 4, {7}, true, true, 7, "not randomised"},
        {"cohort size 0 is never randomised", 0.5, 0, {7, 3}, true, true, 7, "not randomised"},
        {"exp overflow reads as no noise", 400, 4, {7, 3}, true, true, 7, "above 10"},
        {"epsilon 0 carries nothing", 0, 4, {7, 3}, false, false, 0, "uniform noise"},
        {"large epsilon", 6, 4, {90, 10}, false, true, 90, "above 10"},
        {"few reports", 0.1, 1, {3, 2, 1, 0}, false, true, -1, "wider than the data"},
        // e = 3, L = 2: ((3 + 1) * 80 - 100) / 2 = 110.
        {"exact arithmetic", std::log(3.0), 1, {80, 20}, false, true, 110, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ItemEstimate item = Estimator(c.epsilon, c.cohortSize).estimate(c.counts, {}, 1);
        EXPECT_EQ(item.privacy.noNoise, c.noNoise);
        EXPECT_EQ(item.bins[0].estimable, c.estimable);
        if (c.estimable && c.firstEstimate >= 0) {
            EXPECT_NEAR(item.bins[0].estimate, c.firstEstimate, 1e-3);
        }
        for (const auto& b : item.bins) {
            EXPECT_TRUE(std::isfinite(b.estimate) && std::isfinite(b.standardError));
        }
        std::string warnings;
        for (const auto& w : item.privacy.warnings) {
            warnings += w + "\n";
        }
        EXPECT_NE(warnings.find(c.warning), std::string::npos) << warnings;
        if (*c.warning == '\0') {
            EXPECT_TRUE(warnings.empty()) << warnings;
        }
    }
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
