#include "fact/Campaign.h"

#include <stdexcept>

#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

namespace fact {

Campaign::Campaign(CampaignSchema schema)
    : Campaign(schema, std::make_shared<MultiDimensionalRandomizedDifferentialPrivacyPolicy>(
                           schema.dpConfig)) {}

Campaign::Campaign(CampaignSchema schema, std::shared_ptr<DifferentialPrivacyPolicy> policy)
    : mSchema(std::move(schema)), mPolicy(std::move(policy)) {
    mVectorProducers.reserve(mSchema.vectorProducerConfigs.size());
    for (const auto& config : mSchema.vectorProducerConfigs) {
        mVectorProducers.push_back(std::make_shared<VectorProducer>(config, mPolicy));
    }
    // The concatenation must stay as allocatable as each producer's vector.
    int64_t length = 0;
    for (const auto& producer : mVectorProducers) {
        length += producer->vectorSize();
    }
    if (length > VectorProducer::kMaxVectorSize) {
        throw std::out_of_range("Vector of campaign \"" + mSchema.campaignId + "\" exceeds " +
                                std::to_string(VectorProducer::kMaxVectorSize) + " elements");
    }
}

Campaign::~Campaign() = default;

std::string Campaign::GetApplicationId(const InputEvent& event) const {
    std::string id = mSchema.dataProducer + "_";
    for (const auto& filter : mSchema.cohortFilters) {
        const auto found = event.attributes.find(filter);
        if (found == event.attributes.end()) {
            return std::string();
        }
        for (const char c : found->second) {
            if (c == '_') {
                id += '\\';
            }
            id += c;
        }
        id += '_';
    }
    id += mSchema.campaignId;
    return id;
}

Vector Campaign::CreateVector(const InputEvent& event) const {
    Vector result(0, "");
    bool first = true;
    for (const auto& producer : mVectorProducers) {
        const bool forge = mPolicy && mPolicy->ForgeEvent(producer->vectorSize());
        Vector vector = forge ? producer->CreateForgeVector(event) : producer->CreateVector(event);
        // Concatenating onto the empty start vector would only copy.
        if (first) {
            result = std::move(vector);
            first = false;
        } else {
            result.Concatenate(vector);
        }
    }
    result.AddMetadataField("campaign_id", mSchema.campaignId);
    return result;
}

int32_t Campaign::VectorLength() const {
    int64_t length = 0;
    for (const auto& producer : mVectorProducers) {
        length += producer->vectorSize();
    }
    return static_cast<int32_t>(length);
}

std::string Campaign::VectorMetadata() const {
    Vector empty(0, "");
    if (!mVectorProducers.empty()) {
        mVectorProducers.front()->AddMetadata(empty);
    }
    empty.AddMetadataField("campaign_id", mSchema.campaignId);
    return empty.metadata();
}

}  // namespace fact
