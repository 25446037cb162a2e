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
    mLength = static_cast<int32_t>(length);
    if (!mVectorProducers.empty()) {
        mVectorProducers.front()->AddMetadata(mHead);
    }
    mHead.AddMetadataField("campaign_id", mSchema.campaignId);
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
    Vector result = mHead;
    result.elements().assign(static_cast<size_t>(mLength), 0);
    size_t offset = 0;
    for (const auto& producer : mVectorProducers) {
        const bool forge = mPolicy && mPolicy->ForgeEvent(producer->vectorSize());
        const int32_t position = forge ? producer->ForgePosition() : producer->Position(event);
        if (position >= 0) {
            result.elements()[offset + static_cast<size_t>(position)] = 1;
        }
        offset += static_cast<size_t>(producer->vectorSize());
    }
    return result;
}

int32_t Campaign::VectorLength() const {
    return mLength;
}

std::string Campaign::VectorMetadata() const {
    return mHead.metadata();
}

}  // namespace fact
