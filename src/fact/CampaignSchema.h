#pragma once
// One campaign document, converted: identity, data producer, cohort filters,
// upload criteria, privacy parameters, the producer's configuration text and
// one vector-producer configuration per "data" item, all in document order.
// Also owns the embedded draft-04 JSON Schema of the campaign document.
//
// A plain value; copyable and movable, no synchronisation.

#include <string>
#include <vector>

#include "fact/FactTypes.h"

namespace fact {

struct CampaignSchema {
    // The campaign document's JSON Schema text. Declared draft-04 although it
    // uses "const", which such a validator ignores: the loader checks
    // "fact_compatibility_id" itself.
    static const std::string kSchema;

    std::string campaignId;
    std::string dataProducer;
    std::vector<std::string> cohortFilters;
    std::vector<UploadFrequencyConfig> uploadFrequencies;
    DifferentialPrivacyConfig dpConfig;
    // "data_producer_config" as compact JSON text.
    std::string dataProducerConfig;
    std::vector<VectorProducerConfig> vectorProducerConfigs;
};

}  // namespace fact
