#include "fact/FactTypes.h"

#include <stdexcept>

namespace fact {

UploadFrequencyConfig::UploadFrequencyConfig(const std::string& typeText, int32_t v) {
    if (typeText == "time_seconds") {
        type = TIME;
        value = v;
    } else if (typeText == "size_kb") {
        type = SIZE;
        // Unsigned shift: same bits as the device's, without signed overflow.
        value = static_cast<int32_t>(static_cast<uint32_t>(v) << 10);
    } else {
        throw std::invalid_argument("Invalid type for upload frequency: " + typeText);
    }
}

std::string DifferentialPrivacyConfig::Serialize() const {
    return "{\"cohort_size\": " + std::to_string(cohortSize) + "}";
}

VectorAggregation::Value VectorAggregation::FromString(const std::string& text) {
    if (text == "count") {
        return COUNT;
    }
    throw std::runtime_error("Unsupported aggregation function: " + text);
}

VectorProducerConfig::VectorProducerConfig(std::string name, const std::string& aggregationText,
                                           std::string type)
    : analyticsName(std::move(name)),
      aggregation(VectorAggregation::FromString(aggregationText)),
      isCount(aggregation == VectorAggregation::COUNT),
      aggregationFunctionSize(aggregation == VectorAggregation::COUNT ? 1 : 0),
      dataType(std::move(type)) {
    attributes.max_load_factor(1.0f);
}

}  // namespace fact
