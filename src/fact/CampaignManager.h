#pragma once
// Owner of the loaded campaigns and of the vectors collected for them. Each
// input event becomes one vector per campaign it belongs to, summed per
// application id; when the first campaign's upload criteria are met, all sums
// go to the send-vector callback and are forgotten.
//
// Campaigns are kept ordered by campaign id (std::map), so "the first
// campaign", whose upload criteria alone are consulted, is the one with the
// smallest id; collected vectors are ordered by application id, the order in
// which they are delivered.
//
// No lock of its own: callers serialise every call (the entry points do so
// on the library mutex). The callbacks run on the calling thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "fact/Campaign.h"
#include "fact/InputEvent.h"
#include "fact/Vector.h"

namespace fact {

// Monotonic time of the upload criteria; tests substitute their own.
class SteadyClock {
  public:
    virtual ~SteadyClock() = default;
    virtual std::chrono::steady_clock::time_point now() const {
        return std::chrono::steady_clock::now();
    }
};

class CampaignManager {
  public:
    using VectorMap = std::map<std::string, Vector>;
    using SendVectorCallback = std::function<void(const VectorMap&)>;
    using DataProducerConfigCallback =
        std::function<int(const std::string& dataProducer, const std::string& config)>;

    // The process-wide manager, created on first use.
    static CampaignManager& GetInstance();

    explicit CampaignManager(
        std::shared_ptr<const SteadyClock> clock = std::make_shared<const SteadyClock>());
    virtual ~CampaignManager();
    CampaignManager(const CampaignManager&) = delete;
    CampaignManager& operator=(const CampaignManager&) = delete;

    // Loads the document and replaces every campaign, then hands each new
    // campaign's data-producer configuration to the first registered data
    // producer. Loader errors leave the campaigns as they were; a campaign
    // that cannot be built (privacy parameters) leaves none; a refused
    // configuration counts "TdpLoadConfigurationErrorCount" and throws
    // "Data Producer callback failed for campaign: <id>" (campaigns stay).
    void LoadConfig(const std::string& path);
    Campaign CreateCampaign(CampaignSchema&& schema) const;

    // Feeds one event to every campaign; may send. A vector whose length
    // differs from the one collected under its id counts
    // "VectorMismatchCount" and throws; earlier campaigns' updates stay.
    void CreateOrUpdateVectorInMap(const InputEvent& event);
    bool CheckUploadCriteria() const;
    // Sends (when a callback is set and something was collected), then clears.
    void SendAndClearVectors();

    void SetSendVectorCallback(SendVectorCallback callback);
    // An already registered name keeps its first callback.
    void SetDataProducerConfigCallback(const std::string& dataProducerName,
                                       DataProducerConfigCallback callback);

    // Removes one campaign; false when none has this id.
    bool DeleteCampaign(const std::string& campaignId);
    // The loaded campaign with this id, or null.
    const Campaign* GetCampaign(const std::string& campaignId) const;

    const VectorMap& vectors() const { return mVectors; }
    uint32_t vectorsMemSize() const { return mVectorsMemSize; }

  private:
    const std::shared_ptr<const SteadyClock> mClock;
    std::map<std::string, std::unique_ptr<Campaign>> mCampaigns;
    VectorMap mVectors;
    uint32_t mVectorsMemSize = 0;
    std::chrono::steady_clock::time_point mLastSendTime;
    SendVectorCallback mSendVectorCallback;
    // Ordered so that "the first registered data producer" is well defined.
    std::map<std::string, DataProducerConfigCallback> mDataProducerConfigCallbacks;
};

}  // namespace fact
