#include "ResultsBuilder.h"

namespace vemo {
namespace cloud {

ResultsBuilder::Status ResultsBuilder::build(CloudStore& store, const CampaignCatalog& catalog,
                                             const std::string& campaignId, CampaignResults& out,
                                             std::string& error) {
    const auto layout = catalog.find(campaignId);
    if (!layout) {
        error = "no campaign document with campaign_id \"" + campaignId + "\"";
        return Status::kUnknownCampaign;
    }
    out.campaignId = campaignId;
    out.applications.clear();
    const auto& dp = layout->schema.dpConfig;
    const Estimator estimator(dp.epsilon, dp.cohortSize);
    for (const Totals& totals : store.totals(campaignId)) {
        if (totals.sum.size() != layout->vectorLength) {
            error = "the sums of \"" + totals.applicationId + "\" have " +
                    std::to_string(totals.sum.size()) + " elements, the campaign document gives " +
                    std::to_string(layout->vectorLength);
            return Status::kLayoutMismatch;
        }
        ApplicationResults app;
        app.applicationId = totals.applicationId;
        app.devices = totals.devices;
        app.sessions = totals.sessions;
        app.checksumOk = totals.checksumFailures == 0;
        for (const ItemLayout& item : layout->items) {
            const auto first = totals.sum.begin() + item.offset;
            const std::vector<uint32_t> counts(first, first + item.length);
            app.items.push_back(
                {item.name, item.length, estimator.estimate(counts, item.labels, totals.uploads)});
        }
        out.applications.push_back(std::move(app));
    }
    return Status::kOk;
}

}  // namespace cloud
}  // namespace vemo
