#include "fact/VectorProducer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "FactTestSupport.h"
#include "fact/Campaign.h"

namespace {

using fact::DifferentialPrivacyConfig;
using fact::InputEvent;
using fact::Vector;
using fact::VectorProducer;
using fact::VectorProducerConfig;
using fact::test::errorOf;

// beta (2 string bins) listed before alpha (3 int bins): alpha still leads.
VectorProducerConfig alphaBeta() {
    VectorProducerConfig config("ab", "count", "int32");
    auto beta = std::make_shared<fact::Attr>("beta", "string");
    beta->addBin<std::string>("b0", "b0");
    beta->addBin<std::string>("b1", "b1");
    auto alpha = std::make_shared<fact::Attr>("alpha", "int32");
    alpha->addBin<int>("a0", 0, 10, false);
    alpha->addBin<int>("a1", 10, 20, false);
    alpha->addBin<int>("a2", 20, 30, false);
    config.attributes.emplace("beta", beta);
    config.attributes.emplace("alpha", alpha);
    return config;
}

InputEvent event(const fact::test::Pairs& attributes) {
    return InputEvent(fact::test::eventText("p", attributes));
}

int onePosition(const Vector& v) {
    return fact::test::onePosition(v.elements());
}

// Positions in name order, misses and the vector length are FactApiTest's
// exact vectors.
TEST(VectorProducerTest, MissingAttributesAndTooManyElements) {
    const VectorProducer producer(alphaBeta(), nullptr);
    // alpha misses every bin: beta, later in name order, is never looked up.
    EXPECT_EQ(0, onePosition(producer.CreateVector(event({{"alpha", "99"}}))));
    EXPECT_EQ("CreateVector inputEvent missing required attribute: alpha", errorOf([&] {
                  producer.CreateVector(event({{"beta", "b1"}}));
              }));

    VectorProducerConfig config("big", "count", "int32");
    for (const char* name : {"a", "b", "c"}) {
        auto attr = std::make_shared<fact::Attr>(name, "int32");
        for (int i = 0; i < 300; ++i)
            attr->addBin<int>("b", i);
        config.attributes.emplace(name, attr);
    }
    EXPECT_EQ("Vector of \"big\" exceeds 16777216 elements",
              errorOf([&] { VectorProducer tooBig(config, nullptr); }));
}

// The campaign's randomised response with the real RAND_bytes source: the
// true position survives with e / (e + L - 1) and forged positions are
// uniform over the whole vector (0 to L - 1). Bounds are six standard
// deviations / a chi-square far in the tail.
TEST(VectorProducerTest, RandomisedResponseMatchesItsDistribution) {
    fact::CampaignSchema schema;
    schema.campaignId = "stat";
    schema.dataProducer = "p";
    schema.cohortFilters = {"alpha"};
    schema.dpConfig = DifferentialPrivacyConfig{std::log(6.0) / 2, 4, 1};  // e = 6
    schema.vectorProducerConfigs.push_back(alphaBeta());
    const fact::Campaign campaign(schema);
    const InputEvent truth = event({{"alpha", "15"}, {"beta", "b1"}});  // position 4

    const int n = 20000;
    const int length = 7;
    std::vector<int> counts(length, 0);
    for (int i = 0; i < n; ++i) {
        const int at = onePosition(campaign.CreateVector(truth));
        ASSERT_GE(at, 0);
        ++counts[static_cast<size_t>(at)];
    }
    const double keep = 6.0 / (6.0 + length - 1);  // 0.5
    const double sd = std::sqrt(keep * (1 - keep) / n);
    EXPECT_NEAR(keep, static_cast<double>(counts[4]) / n, 6 * sd);

    const int others = n - counts[4];
    const double expected = static_cast<double>(others) / (length - 1);
    double chiSquare = 0;
    for (int i = 0; i < length; ++i) {
        if (i == 4)
            continue;
        const double d = counts[static_cast<size_t>(i)] - expected;
        chiSquare += d * d / expected;
    }
    // 5 degrees of freedom: P(chi-square > 45) is below 1e-8.
    EXPECT_LT(chiSquare, 45.0);
}

}  // namespace
