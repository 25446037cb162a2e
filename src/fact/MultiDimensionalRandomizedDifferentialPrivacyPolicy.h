#pragma once
// Randomised response over a whole one-hot vector: the true vector is kept
// with probability p = (e - 1) / (e + L - 1), e = exp(epsilon * sqrt(cohort
// size)), L the vector length; otherwise the single 1 goes to a uniformly
// random position. The true position thus survives with e / (e + L - 1).
// Randomness comes only from OpenSSL's RAND_bytes, drawn in blocks (RandomBlock).
//
// One per campaign, shared by its vector producers. Immutable; every
// operation is const and may run on any thread at once.

#include "fact/DifferentialPrivacyPolicy.h"
#include "fact/FactTypes.h"

namespace fact {

class MultiDimensionalRandomizedDifferentialPrivacyPolicy : public DifferentialPrivacyPolicy {
  public:
    // No validation here: a producer's CalculateThreshold call does that.
    explicit MultiDimensionalRandomizedDifferentialPrivacyPolicy(DifferentialPrivacyConfig config);

    // Forwards to getRandInt.
    int GetValueInRange(int min, int max) const override;
    // False for length < 2 or cohort size 0; else getRandDouble(0, 1) > p.
    bool ForgeEvent(int length) const override;
    // Counts "DPErrorCount" and throws std::invalid_argument when
    // e + length == 1 or p >= 1. A NaN p is returned as it is.
    double CalculateThreshold(int length) const override;
    // max <= min counts "DPErrorCount" and throws std::invalid_argument
    // "Invalid range: max must be greater than min"; else min + (u mod n)
    // over 32 random bits (the slight modulo bias is accepted).
    int getRandInt(int min, int max) const override;
    // Same error text, not counted; else min + (max - min) * u * 2^-64 over
    // 64 random bits (rounding can reach max).
    double getRandDouble(double min, double max) const override;

    const DifferentialPrivacyConfig& config() const { return mConfig; }

  private:
    const DifferentialPrivacyConfig mConfig;
};

}  // namespace fact
