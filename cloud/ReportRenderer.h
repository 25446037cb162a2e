#pragma once
// Renders a campaign's results three ways: the JSON of the results
// endpoint, a self-contained HTML page with one inline SVG bar chart per
// data item (estimate as a bar, its 95% interval as a whisker, the raw noisy
// count as a dot) and a plain-text table for the terminal.
//
// Stateless; any thread.

#include <string>

#include "ResultsBuilder.h"

namespace vemo {
namespace cloud {

class ReportRenderer {
  public:
    static std::string json(const CampaignResults& results);
    static std::string html(const CampaignResults& results);
    static std::string table(const CampaignResults& results);
};

}  // namespace cloud
}  // namespace vemo
