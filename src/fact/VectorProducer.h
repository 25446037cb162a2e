#pragma once
// Turns an input event into the one-hot vector of one analytics item. The
// vector spans the cartesian product of the item's attributes' bins: the
// attributes sorted by name form a mixed-radix number (the first name is the
// most significant digit) and element 0 is shared by the all-first-bins
// combination and the events that fall in no bin. A forged vector puts its 1
// at a position drawn from the privacy policy.
//
// Immutable after construction; CreateVector, CreateForgeVector and
// AddMetadata are const and may run concurrently. The policy is shared.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fact/Attr.h"
#include "fact/DifferentialPrivacyPolicy.h"
#include "fact/FactTypes.h"
#include "fact/InputEvent.h"
#include "fact/Vector.h"

namespace fact {

class VectorProducer {
  public:
    // Vectors longer than this are refused at construction: one event's
    // vector must stay allocatable on the device.
    static constexpr int64_t kMaxVectorSize = int64_t{1} << 24;

    // With a policy, its CalculateThreshold(vector size) validates the
    // privacy parameters for this length and its error leaves the
    // constructor. A bin product above kMaxVectorSize throws
    // std::out_of_range.
    VectorProducer(const VectorProducerConfig& config,
                   std::shared_ptr<DifferentialPrivacyPolicy> policy);
    virtual ~VectorProducer();

    // The true one-hot vector, stamped with the privacy metadata. Throws
    // std::runtime_error for a missing attribute (met before the first
    // unmatched one in name order) or an aggregation other than count.
    virtual Vector CreateVector(const InputEvent& event) const;
    // A one-hot vector at policy->GetValueInRange(0, size - 1); the event is
    // not read. Needs a policy.
    virtual Vector CreateForgeVector(const InputEvent& event) const;

    // The element CreateVector sets to 1 (-1 when the item has no attributes
    // and the vector stays all zeros), and the element a forged vector sets;
    // each throws what its vector's maker throws.
    int32_t Position(const InputEvent& event) const;
    int32_t ForgePosition() const;

    // Adds the "differential_privacy" member when there is a policy. Throws
    // (counting "VectorMetadataErrorCount") when the vector has metadata.
    void AddMetadata(Vector& vector) const;
    // Bin index of the value in the named attribute; -1 for an unknown name.
    int32_t FindIndexFromValue(const std::string& attributeName, const std::string& value) const;

    int32_t vectorSize() const { return mVectorSize; }

  private:
    const VectorProducerConfig mConfig;
    const std::shared_ptr<DifferentialPrivacyPolicy> mPolicy;
    std::vector<std::shared_ptr<Attr>> mSortedAttributes;
    int32_t mVectorSize = 0;
    const int32_t mBaseOffset = 1;
    // The privacy policy's configuration text, fixed for the producer's life.
    std::string mDpMetadata;
};

}  // namespace fact
