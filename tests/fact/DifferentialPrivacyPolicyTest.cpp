#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "fact/FactHeartbeatMetric.h"
#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

namespace {

using fact::DifferentialPrivacyConfig;
using fact::FactHeartbeatMetric;
using Policy = fact::MultiDimensionalRandomizedDifferentialPrivacyPolicy;

Policy policy(double epsilon, int cohortSize) {
    return Policy(DifferentialPrivacyConfig{epsilon, cohortSize, 1});
}

std::string thresholdError(const Policy& p, int length) {
    try {
        return std::to_string(p.CalculateThreshold(length));
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
}

const std::string kDenominatorError =
    "std::exp(mConfig.epsilon * std::sqrt(mConfig.cohortSize)) + length should be not equalt to "
    "1. Please check your DifferentialPrivayConfig match with CampaignSchema";
const std::string kPError =
    "p should be less than 1. Please check your DifferentialPrivayConfig match with CampaignSchema";

TEST(DifferentialPrivacyPolicyTest, ThresholdAndItsErrors) {
    auto& metric = FactHeartbeatMetric::GetInstance();
    EXPECT_NEAR((std::exp(1.0) - 1) / (std::exp(1.0) + 1), policy(1, 1).CalculateThreshold(2),
                1e-12);
    EXPECT_NEAR(0.4621, policy(1, 1).CalculateThreshold(2), 1e-4);
    EXPECT_DOUBLE_EQ(0.0, policy(0, 5).CalculateThreshold(10));
    EXPECT_NEAR((std::exp(2.0) - 1) / std::exp(2.0), policy(1, 4).CalculateThreshold(1), 1e-12);
    EXPECT_LT(policy(-1, 1).CalculateThreshold(3), 0.0);
    // exp overflows to infinity: p is NaN, which passes and never forges.
    EXPECT_TRUE(std::isnan(policy(100, 100).CalculateThreshold(61)));
    EXPECT_FALSE(policy(100, 100).ForgeEvent(61));

    const int before = metric.getCount("DPErrorCount");
    EXPECT_EQ(kDenominatorError, thresholdError(policy(0, 5), 0));
    EXPECT_EQ(kPError, thresholdError(policy(1, 5), 0));
    EXPECT_EQ(kPError, thresholdError(policy(10, 100), 61));  // p rounds to 1
    EXPECT_EQ(before + 3, metric.getCount("DPErrorCount"));
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

TEST(DifferentialPrivacyPolicyTest, RandomRanges) {
    auto& metric = FactHeartbeatMetric::GetInstance();
    const Policy p = policy(1, 1);
    const int before = metric.getCount("DPErrorCount");
    for (auto range : {std::pair<int, int>{5, 5}, {6, 5}}) {
        try {
            p.getRandInt(range.first, range.second);
            ADD_FAILURE();
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ("Invalid range: max must be greater than min", e.what());
        }
    }
    EXPECT_EQ(before + 2, metric.getCount("DPErrorCount"));
    try {
        p.getRandDouble(1.0, 1.0);
        ADD_FAILURE();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("Invalid range: max must be greater than min", e.what());
    }
    EXPECT_EQ(before + 2, metric.getCount("DPErrorCount"));  // not counted for doubles

    std::vector<int> seen(7, 0);
    for (int i = 0; i < 2000; ++i) {
        const int v = p.GetValueInRange(0, 6);
        ASSERT_GE(v, 0);
        ASSERT_LE(v, 6);
        ++seen[static_cast<size_t>(v)];
    }
    for (int count : seen)
        EXPECT_GT(count, 150);  // expected 286 each
    const int wide = p.getRandInt(-2147483647 - 1, 2147483647);
    (void)wide;  // the full range must not divide by zero
    for (int i = 0; i < 1000; ++i) {
        const double d = p.getRandDouble(-2.0, 3.0);
        ASSERT_GE(d, -2.0);
        ASSERT_LE(d, 3.0);
    }
}

TEST(DifferentialPrivacyPolicyTest, SerializeWritesOnlyTheCohortSize) {
    EXPECT_EQ("{\"cohort_size\": 0}", (DifferentialPrivacyConfig{3.5, 0, 1}.Serialize()));
    EXPECT_EQ("{\"cohort_size\": -12}", (DifferentialPrivacyConfig{0, -12, 7}.Serialize()));
}

}  // namespace
