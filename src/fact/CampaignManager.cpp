#include "fact/CampaignManager.h"

#include <stdexcept>

#include "fact/CampaignSchemaProvider.h"
#include "fact/FactHeartbeatMetric.h"

namespace fact {

CampaignManager& CampaignManager::GetInstance() {
    static CampaignManager instance;
    return instance;
}

CampaignManager::CampaignManager(std::shared_ptr<const SteadyClock> clock)
    : mClock(std::move(clock)), mLastSendTime(mClock->now()) {}

CampaignManager::~CampaignManager() = default;

void CampaignManager::LoadConfig(const std::string& path) {
    auto schemas = CampaignSchemaProvider().LoadConfig(path);
    if (schemas.empty()) {
        FactHeartbeatMetric::GetInstance().addCount("CampaignLoadFailureCount");
        SendAndClearVectors();
        mCampaigns.clear();
        if (!mDataProducerConfigCallbacks.empty()) {
            const auto& first = *mDataProducerConfigCallbacks.begin();
            if (first.second(first.first, "") != 0) {
                throw std::runtime_error("Data Producer callback failed for empty campaign schema");
            }
        }
        throw std::runtime_error("Campaign Schema empty. Kill FACT: " + path);
    }
    // The old campaigns go first: a campaign that cannot be built leaves
    // none loaded rather than a stale one.
    mCampaigns.clear();
    for (auto& entry : schemas) {
        mCampaigns.emplace(entry.first,
                           std::make_unique<Campaign>(CreateCampaign(std::move(entry.second))));
    }
    for (const auto& entry : mCampaigns) {
        if (mDataProducerConfigCallbacks.empty()) {
            break;
        }
        const auto& first = *mDataProducerConfigCallbacks.begin();
        if (first.second(first.first, entry.second->schema().dataProducerConfig) != 0) {
            FactHeartbeatMetric::GetInstance().addCount("TdpLoadConfigurationErrorCount");
            throw std::runtime_error("Data Producer callback failed for campaign: " + entry.first);
        }
    }
}

Campaign CampaignManager::CreateCampaign(CampaignSchema&& schema) const {
    return Campaign(std::move(schema));
}

void CampaignManager::CreateOrUpdateVectorInMap(const InputEvent& event) {
    for (const auto& entry : mCampaigns) {
        const Campaign& campaign = *entry.second;
        const std::string applicationId = campaign.GetApplicationId(event);
        if (applicationId.empty()) {
            continue;
        }
        Vector vector = campaign.CreateVector(event);
        auto stored = mVectors.find(applicationId);
        if (stored != mVectors.end()) {
            if (stored->second.elements().size() != vector.elements().size()) {
                FactHeartbeatMetric::GetInstance().addCount("VectorMismatchCount");
                throw std::runtime_error("Vector size mismatch for application id: " +
                                         applicationId);
            }
            stored->second += vector;
            mVectorsMemSize += vector.memSize();
        } else {
            mVectorsMemSize += vector.memSize();
            mVectors.emplace(applicationId, std::move(vector));
        }
        static const std::string kMemSizeDatapoint = "VectorMemSizeInKb";
        FactHeartbeatMetric::GetInstance().setCounterDatapoint(
            kMemSizeDatapoint, static_cast<int32_t>(mVectorsMemSize) / 1024);
    }
    if (CheckUploadCriteria() && mVectorsMemSize != 0) {
        SendAndClearVectors();
    }
}

bool CampaignManager::CheckUploadCriteria() const {
    if (mCampaigns.empty()) {
        return false;
    }
    const auto elapsed = mClock->now() - mLastSendTime;
    const int64_t elapsedSeconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 1000000000;
    for (const auto& frequency : mCampaigns.begin()->second->schema().uploadFrequencies) {
        if (frequency.type == UploadFrequencyConfig::TIME) {
            if (elapsedSeconds >= frequency.value) {
                return true;
            }
        } else if (mVectorsMemSize >= static_cast<uint32_t>(frequency.value)) {
            // The device compares its unsigned byte count with the value
            // converted to unsigned; a negative size is never met.
            return true;
        }
    }
    return false;
}

void CampaignManager::SendAndClearVectors() {
    if (mSendVectorCallback && !mVectors.empty() && mVectorsMemSize >= 1) {
        mSendVectorCallback(mVectors);
        mLastSendTime = mClock->now();
    }
    mVectorsMemSize = 0;
    mVectors.clear();
}

void CampaignManager::SetSendVectorCallback(SendVectorCallback callback) {
    mSendVectorCallback = std::move(callback);
}

void CampaignManager::SetDataProducerConfigCallback(const std::string& dataProducerName,
                                                    DataProducerConfigCallback callback) {
    mDataProducerConfigCallbacks.emplace(dataProducerName, std::move(callback));
}

bool CampaignManager::DeleteCampaign(const std::string& campaignId) {
    return mCampaigns.erase(campaignId) != 0;
}

const Campaign* CampaignManager::GetCampaign(const std::string& campaignId) const {
    const auto found = mCampaigns.find(campaignId);
    return found == mCampaigns.end() ? nullptr : found->second.get();
}

}  // namespace fact
