#pragma once
// One loaded campaign: its configuration and one vector producer per "data"
// item, all sharing one privacy policy made from the campaign's privacy
// configuration.
//
// Immutable after construction; const operations may run concurrently.

#include <memory>
#include <string>
#include <vector>

#include "fact/CampaignSchema.h"
#include "fact/DifferentialPrivacyPolicy.h"
#include "fact/InputEvent.h"
#include "fact/Vector.h"
#include "fact/VectorProducer.h"

namespace fact {

class Campaign {
  public:
    // Throws what a producer's construction throws (privacy parameters that
    // cannot serve a vector length, an oversized vector).
    explicit Campaign(CampaignSchema schema);
    // For tests that script the privacy decisions.
    Campaign(CampaignSchema schema, std::shared_ptr<DifferentialPrivacyPolicy> policy);
    virtual ~Campaign();

    // "<data producer>_<value>_..._<campaign id>" over the cohort filters,
    // "_" in a value written "\_"; empty when the event lacks a filter.
    std::string GetApplicationId(const InputEvent& event) const;
    // The producers' vectors (each true or forged as the policy decides),
    // concatenated in "data" order, plus the "campaign_id" metadata member.
    Vector CreateVector(const InputEvent& event) const;

    // Sum of the producers' vector sizes: the length of CreateVector's result.
    int32_t VectorLength() const;
    // The metadata text every vector of this campaign carries.
    std::string VectorMetadata() const;

    const CampaignSchema& schema() const { return mSchema; }

  private:
    const CampaignSchema mSchema;
    const std::shared_ptr<DifferentialPrivacyPolicy> mPolicy;
    std::vector<std::shared_ptr<VectorProducer>> mVectorProducers;
    int32_t mLength = 0;
    // No elements, and the metadata every vector of the campaign carries:
    // each vector starts as a copy instead of writing the text again.
    Vector mHead{0, ""};
};

}  // namespace fact
