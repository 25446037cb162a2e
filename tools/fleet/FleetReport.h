#pragma once
// Puts the cloud's answer beside the truth: one table per data item (bin
// label, true count, noisy sum, estimate and 95% interval), the privacy
// accounting the cloud states, and a one-line verdict.
//
// The verdict holds when no session failed and one completed, the
// application's sum passed its checksum, every device and every report the
// truth counts is in the sum, and at least half of the bins' intervals hold
// the true count (95% intervals miss now and then; most missing means a
// fault, not bad luck).
//
// Stateless; any thread.

#include <string>

namespace vemo {
namespace fleet {

class FleetReport {
  public:
    struct Outcome {
        std::string text;  // the tables, then the verdict line
        bool ok = false;
    };

    // truthJson: TraceGenerator's truth; resultsJson: the cloud's
    // /v1/campaigns/<id>/results; healthJson: its /v1/health. A document
    // that does not have the expected shape gives a failed verdict naming
    // what is missing.
    static Outcome build(const std::string& truthJson, const std::string& resultsJson,
                         const std::string& healthJson);
};

}  // namespace fleet
}  // namespace vemo
