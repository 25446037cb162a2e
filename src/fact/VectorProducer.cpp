#include "fact/VectorProducer.h"

#include <algorithm>
#include <stdexcept>

#include "fact/FactHeartbeatMetric.h"
#include "fact/MultiDimensionalRandomizedDifferentialPrivacyPolicy.h"

namespace fact {

VectorProducer::VectorProducer(const VectorProducerConfig& config,
                               std::shared_ptr<DifferentialPrivacyPolicy> policy)
    : mConfig(config), mPolicy(std::move(policy)) {
    mSortedAttributes.reserve(mConfig.attributes.size());
    for (const auto& entry : mConfig.attributes) {
        mSortedAttributes.push_back(entry.second);
    }
    if (!mSortedAttributes.empty()) {
        int64_t product = 1;
        for (const auto& attr : mSortedAttributes) {
            product *= static_cast<int64_t>(attr->bins.size());
            if (product > kMaxVectorSize) {
                throw std::out_of_range("Vector of \"" + mConfig.analyticsName + "\" exceeds " +
                                        std::to_string(kMaxVectorSize) + " elements");
            }
        }
        mVectorSize = static_cast<int32_t>(mBaseOffset + mConfig.aggregationFunctionSize * product);
    }
    std::sort(mSortedAttributes.begin(), mSortedAttributes.end(),
              [](const auto& a, const auto& b) { return a->name < b->name; });
    if (mPolicy) {
        mPolicy->CalculateThreshold(mVectorSize);
        const auto* policy =
            dynamic_cast<const MultiDimensionalRandomizedDifferentialPrivacyPolicy*>(mPolicy.get());
        mDpMetadata = (policy ? policy->config() : DifferentialPrivacyConfig{}).Serialize();
    }
}

VectorProducer::~VectorProducer() = default;

Vector VectorProducer::CreateVector(const InputEvent& event) const {
    Vector vector(mVectorSize, "");
    AddMetadata(vector);
    const int32_t position = Position(event);
    if (position >= 0) {
        vector.elements()[static_cast<size_t>(position)] = 1;
    }
    return vector;
}

int32_t VectorProducer::Position(const InputEvent& event) const {
    if (mSortedAttributes.empty()) {
        return -1;
    }
    const int32_t functionSize = mConfig.aggregationFunctionSize;
    int32_t stride = functionSize == 0 ? 0 : (mVectorSize - mBaseOffset) / functionSize;
    int32_t offset = 0;
    for (const auto& attr : mSortedAttributes) {
        const auto found = event.attributes.find(attr->name);
        if (found == event.attributes.end()) {
            throw std::runtime_error("CreateVector inputEvent missing required attribute: " +
                                     attr->name);
        }
        const int32_t index = attr->IndexInRange(found->second);
        if (index < 0) {
            offset = 0;
            break;
        }
        const int32_t binCount = static_cast<int32_t>(attr->bins.size());
        // 64-bit product: stride * index stays below the vector size squared.
        offset += static_cast<int32_t>((static_cast<int64_t>(stride) * index) / binCount);
        stride /= binCount;
    }
    const int32_t position = offset != 0 ? mBaseOffset + functionSize * offset : 0;
    if (mConfig.aggregation != VectorAggregation::COUNT) {
        throw std::runtime_error("VectorAggregation type not supported");
    }
    if (position >= mVectorSize) {
        throw std::out_of_range("CreateVector position " + std::to_string(position) +
                                " out of range");
    }
    return position;
}

Vector VectorProducer::CreateForgeVector(const InputEvent&) const {
    const int32_t position = ForgePosition();
    Vector vector(mVectorSize, "");
    vector.elements()[static_cast<size_t>(position)] = 1;
    AddMetadata(vector);
    return vector;
}

int32_t VectorProducer::ForgePosition() const {
    if (!mPolicy) {
        throw std::logic_error("CreateForgeVector needs a privacy policy");
    }
    const int position = mPolicy->GetValueInRange(0, mVectorSize - 1);
    if (position < 0 || position >= mVectorSize) {
        throw std::out_of_range("CreateForgeVector position " + std::to_string(position) +
                                " out of range");
    }
    return position;
}

void VectorProducer::AddMetadata(Vector& vector) const {
    if (!vector.metadata().empty()) {
        FactHeartbeatMetric::GetInstance().addCount("VectorMetadataErrorCount");
        throw std::runtime_error("Metadata already exists for vector");
    }
    if (mPolicy) {
        vector.AddMetadataField("differential_privacy", mDpMetadata);
    }
}

int32_t VectorProducer::FindIndexFromValue(const std::string& attributeName,
                                           const std::string& value) const {
    const auto found = mConfig.attributes.find(attributeName);
    if (found == mConfig.attributes.end()) {
        return -1;
    }
    return found->second->IndexInRange(value);
}

}  // namespace fact
