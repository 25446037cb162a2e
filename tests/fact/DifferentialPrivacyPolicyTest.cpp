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

// The threshold's value is VectorProducerTest's statistical test.
TEST(DifferentialPrivacyPolicyTest, ThresholdAndItsErrors) {
    // exp overflows to infinity: p is NaN, which passes and never forges.
    EXPECT_TRUE(std::isnan(policy(100, 100).CalculateThreshold(61)));
    EXPECT_FALSE(policy(100, 100).ForgeEvent(61));

    const int before = heartbeatCount("DPErrorCount");
    EXPECT_EQ(
        "std::exp(mConfig.epsilon * std::sqrt(mConfig.cohortSize)) + length should be not equalt "
        "to 1. Please check your DifferentialPrivayConfig match with CampaignSchema",
        errorOf([] { policy(0, 5).CalculateThreshold(0); }));
    EXPECT_EQ(
        "p should be less than 1. Please check your DifferentialPrivayConfig match with "
        "CampaignSchema",
        errorOf([] { policy(1, 5).CalculateThreshold(0); }));
    EXPECT_EQ(before + 2, heartbeatCount("DPErrorCount"));
}

// Scripts the random double; counts the calls.
class ScriptedPolicy : public Policy {
  public:
    ScriptedPolicy(double epsilon, int cohortSize, double r)
        : Policy(DifferentialPrivacyConfig{epsilon, cohortSize, 1}), r(r) {}
    double getRandDouble(double, double) const override {
        ++calls;
        return r;
    }
    double r;
    mutable int calls = 0;
};

TEST(DifferentialPrivacyPolicyTest, ForgeDecision) {
    const double p = policy(1, 1).CalculateThreshold(2);
    EXPECT_FALSE(ScriptedPolicy(1, 1, p).ForgeEvent(2));  // r == p keeps the truth
    EXPECT_TRUE(ScriptedPolicy(1, 1, std::nextafter(p, 1.0)).ForgeEvent(2));
    EXPECT_TRUE(ScriptedPolicy(0, 3, 1e-300).ForgeEvent(5));
    EXPECT_FALSE(ScriptedPolicy(0, 3, 0.0).ForgeEvent(5));

    ScriptedPolicy shortVector(0, 3, 1.0);
    EXPECT_FALSE(shortVector.ForgeEvent(1));
    EXPECT_FALSE(shortVector.ForgeEvent(0));
    ScriptedPolicy noCohort(0, 0, 1.0);
    EXPECT_FALSE(noCohort.ForgeEvent(100));
    EXPECT_EQ(0, shortVector.calls + noCohort.calls);
}

// The distribution of the draws is VectorProducerTest's statistical test.
TEST(DifferentialPrivacyPolicyTest, RandomIntegerRanges) {
    const Policy p = policy(1, 1);
    const std::string error = "Invalid range: max must be greater than min";
    const int before = heartbeatCount("DPErrorCount");
    EXPECT_EQ(error, errorOf([&] { p.getRandInt(5, 5); }));
    EXPECT_EQ(error, errorOf([&] { p.getRandInt(6, 5); }));
    EXPECT_EQ(before + 2, heartbeatCount("DPErrorCount"));

    // The span of the full range must not overflow to a division by zero.
    EXPECT_EQ("ok", errorOf([&] { p.getRandInt(-2147483647 - 1, 2147483647); }));
}

}  // namespace
