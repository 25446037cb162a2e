#pragma once
// The campaign metadata that travels with a masked vector, its parser, and
// the upload document built from both.
//
// The metadata text is a JSON object {"campaign_id": text,
// "differential_privacy": text}, where the second text is itself a JSON object
// {"cohort_size": integer}; both levels are checked against fixed schemas and
// allow no other member. All functions here are pure and thread-safe.

#include <rapidjson/document.h>

#include <cstdint>
#include <string>

#include "fact/upload/VectorEncoding.h"

namespace fact {

struct CampaignMetadata {
    std::string campaignId;
    int32_t cohortSize = 0;
    VectorEncoding vectorEncoding = VectorEncoding::kBase64;
    // false: little-endian elements; true: big-endian.
    bool elementDatatypeEndianness = false;
};

// The schema of the metadata text's outer object.
extern const char kCampaignMetadataSchema[];
// The schema of the text inside "differential_privacy".
extern const char kDifferentialPrivacySchema[];

// Parses and validates the metadata text. Throws std::invalid_argument with
// one of the fixed texts ("Failed to parse campaign metadata json string,
// error code N", "Invalid campaign metadata json string", "Failed to parse
// differential privacy json string, error code N", "Invalid differential
// privacy json string"), logged once. A cohort size that is negative or does
// not fit 32 bits is invalid too.
CampaignMetadata parseCampaignMetadata(const std::string& text);

// The compact upload document (member order fixed).
std::string createJsonPayload(const std::string& encodedVector, const CampaignMetadata& metadata,
                              const std::string& applicationId, const std::string& cohortId);

// True when the document matches the schema text. Throws
// std::invalid_argument("Failed to parse schema json string, error code N")
// when the schema text is not JSON.
bool validateJson(const rapidjson::Document& document, const char* schemaText);

}  // namespace fact
