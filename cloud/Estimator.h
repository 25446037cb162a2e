#pragma once
// Turns one data item's segment of a summed histogram into de-biased counts.
// Every report of the item was one-hot over L positions and, with e =
// exp(epsilon * sqrt(cohort size)), kept its true position with probability
// e / (e + L - 1) and otherwise landed uniformly. For counts C_j summing to N:
//   estimate  ((e + L - 1) C_j - N) / (e - 1)
//   variance  N (e + L - 2) / (e - 1)^2 + n_j (L - 2) / (e - 1), n_j the
//             estimate clamped at 0,
// with a normal 95% interval. Reports are not randomised at all for L < 2
// or a cohort size of 0 (the estimate is the count); an effective epsilon
// above 700 overflows exp and is reported as "no noise".
//
// Immutable value; any thread.

#include <cstdint>
#include <string>
#include <vector>

namespace vemo {
namespace cloud {

struct PrivacyAccounting {
    double epsilon = 0;
    int32_t cohortSize = 0;
    double effectiveEpsilon = 0;  // epsilon * sqrt(cohort size): the local budget per report
    double reportsPerDevice = 0;  // per upload window
    bool noNoise = false;
    std::vector<std::string> warnings;
};

struct BinEstimate {
    std::string label;
    int64_t noisyCount = 0;
    // False when the reports carry no information (epsilon not positive):
    // estimate, standardError and interval are then absent.
    bool estimable = true;
    double estimate = 0;
    double standardError = 0;
    double low = 0;
    double high = 0;
};

struct ItemEstimate {
    int64_t reports = 0;
    PrivacyAccounting privacy;
    std::vector<BinEstimate> bins;
};

class Estimator {
  public:
    // Above this effective epsilon the noise is negligible for any use.
    static constexpr double kNegligibleNoiseEpsilon = 10.0;
    // exp overflows a double above about 709.
    static constexpr double kNoNoiseEpsilon = 700.0;
    static constexpr double kZ95 = 1.959963984540054;

    Estimator(double epsilon, int32_t cohortSize);

    // `counts` is the item's segment of the sum (read as unsigned words),
    // `labels` one per element, `uploads` the member vectors summed into it.
    ItemEstimate estimate(const std::vector<uint32_t>& counts,
                          const std::vector<std::string>& labels, int64_t uploads) const;

  private:
    double epsilon_;
    int32_t cohortSize_;
};

}  // namespace cloud
}  // namespace vemo
