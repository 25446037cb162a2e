#pragma once
// Decides, per event and vector, whether the true one-hot vector may leave
// the device or must be replaced by a forged one, and supplies the random
// numbers for forging. Implementations are immutable and thread-safe.

namespace fact {

class DifferentialPrivacyPolicy {
  public:
    virtual ~DifferentialPrivacyPolicy() = default;
    // Uniform integer in [min, max].
    virtual int GetValueInRange(int min, int max) const = 0;
    // True when this event's vector of `length` elements must be forged.
    virtual bool ForgeEvent(int length) const = 0;
    // Probability of keeping the true vector for a vector of `length`
    // elements; throws std::invalid_argument when none exists.
    virtual double CalculateThreshold(int length) const = 0;
    // The random sources; tests override them to script outcomes.
    virtual int getRandInt(int min, int max) const = 0;
    virtual double getRandDouble(double min, double max) const = 0;
};

}  // namespace fact
