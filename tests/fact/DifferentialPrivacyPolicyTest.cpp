#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "FactTestSupport.h"
#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

namespace {

using fact::DifferentialPrivacyConfig;
using fact::test::errorOf;
using fact::test::heartbeatCount;
using Policy = fact::MultiDimensionalRandomizedDifferentialPrivacyPolicy;

Policy policy(double epsilon, int cohortSize) {
    return Policy(DifferentialPrivacyConfig{epsilon, cohortSize, 1});
}

// The threshold's value is VectorProducerTest's statistical test. Vectors have
// at least two positions, so only p reaching 1 can be refused.
TEST(DifferentialPrivacyPolicyTest, ThresholdOverflowAndRefusal) {
    // exp overflows to infinity: p is NaN, which passes and never forges.
    EXPECT_TRUE(std::isnan(policy(100, 100).CalculateThreshold(61)));
    EXPECT_FALSE(policy(100, 100).ForgeEvent(61));

    const int before = heartbeatCount("DPErrorCount");
    EXPECT_EQ(
        "p should be less than 1. Please check your DifferentialPrivayConfig match with "
        "CampaignSchema",
        errorOf([] { policy(10, 100).CalculateThreshold(61); }));  // rounds to 1
    EXPECT_EQ(before + 1, heartbeatCount("DPErrorCount"));
}

// Scripts the random double.
class ScriptedPolicy : public Policy {
  public:
    ScriptedPolicy(double epsilon, int cohortSize, double r)
        : Policy(DifferentialPrivacyConfig{epsilon, cohortSize, 1}), r(r) {}
    double getRandDouble(double, double) const override { return r; }
    double r;
};

TEST(DifferentialPrivacyPolicyTest, ForgeDecision) {
    const double p = policy(1, 1).CalculateThreshold(2);
    EXPECT_FALSE(ScriptedPolicy(1, 1, p).ForgeEvent(2));  // r == p keeps the truth
    EXPECT_TRUE(ScriptedPolicy(1, 1, std::nextafter(p, 1.0)).ForgeEvent(2));
    // Without a cohort there is nothing to hide in (p would be 0).
    EXPECT_FALSE(ScriptedPolicy(0, 0, 1.0).ForgeEvent(100));
}

}  // namespace
