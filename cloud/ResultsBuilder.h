#pragma once
// Assembles the analyst's answer for one campaign: the published totals of
// each application id, cut into the campaign's data items, de-biased by the
// estimator with the campaign's privacy settings and labelled with its bins.
//
// Stateless; any thread (the store serialises itself).

#include <cstdint>
#include <string>
#include <vector>

#include "CampaignCatalog.h"
#include "CloudStore.h"
#include "Estimator.h"

namespace vemo {
namespace cloud {

struct ItemResults {
    std::string name;
    uint32_t length = 0;
    ItemEstimate estimate;
};

struct ApplicationResults {
    std::string applicationId;
    int64_t devices = 0;
    int64_t sessions = 0;
    // False when any session of this application id failed its checksum.
    bool checksumOk = true;
    std::vector<ItemResults> items;
};

struct CampaignResults {
    std::string campaignId;
    std::vector<ApplicationResults> applications;
};

class ResultsBuilder {
  public:
    enum class Status { kOk, kUnknownCampaign, kLayoutMismatch };

    // kUnknownCampaign: no document in the catalog; kLayoutMismatch: the
    // stored sums do not have the document's vector length (the document
    // changed after devices reported). `error` says which.
    static Status build(CloudStore& store, const CampaignCatalog& catalog,
                        const std::string& campaignId, CampaignResults& out, std::string& error);
};

}  // namespace cloud
}  // namespace vemo
