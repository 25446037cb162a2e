#pragma once
// The configuration records a campaign document is converted into (see
// CampaignSchema for the whole campaign). Plain values: copyable, no
// synchronisation; immutable once the loader has filled them.

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "fact/Attr.h"

namespace fact {

// One "upload_frequency" entry: a time criterion in seconds or a size
// criterion held in bytes.
struct UploadFrequencyConfig {
    enum Type : int32_t { TIME = 0, SIZE = 1 };

    // "time_seconds" keeps the value; "size_kb" multiplies it by 1024 (the
    // shift wraps in 32 bits as on the device). Any other type throws
    // std::invalid_argument "Invalid type for upload frequency: <text>".
    UploadFrequencyConfig(const std::string& typeText, int32_t value);

    Type type;
    int32_t value;
};

// The "differential_privacy_config" object.
struct DifferentialPrivacyConfig {
    double epsilon = 0.0;
    int32_t cohortSize = 0;
    int32_t configVersion = 0;

    // {"cohort_size": N}: only the cohort size, one blank after the colon.
    std::string Serialize() const;
};

class VectorAggregation {
  public:
    enum Value : int32_t { COUNT = 0 };
    // "count" only; otherwise std::runtime_error
    // "Unsupported aggregation function: <text>".
    static Value FromString(const std::string& text);
};

// One "data" item: the analytics it produces and the attributes spanning it.
struct VectorProducerConfig {
    // Converts the aggregation text (and so throws for anything but "count").
    VectorProducerConfig(std::string analyticsName, const std::string& aggregationText,
                         std::string dataType);

    std::string analyticsName;
    VectorAggregation::Value aggregation;
    bool isCount;
    // Vector slots per bin combination: 1 for count, 0 otherwise.
    int32_t aggregationFunctionSize;
    std::string dataType;
    std::unordered_map<std::string, std::shared_ptr<Attr>> attributes;
};

}  // namespace fact
