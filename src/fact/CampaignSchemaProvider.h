#pragma once
// Reads a campaign document from a file, validates it against the embedded
// campaign schema (parsed once per process) and converts it into a
// CampaignSchema. Every failure is one std::runtime_error whose text starts
// "Failed to load campaign config from path: <path> Error: " followed by the
// text of the step that failed; no partial record is ever returned.
//
// No state of its own; any thread.

#include <string>
#include <unordered_map>

#include <rapidjson/document.h>

#include "fact/CampaignSchema.h"

namespace fact {

class CampaignSchemaProvider {
  public:
    // One entry, keyed by the document's "campaign_id".
    std::unordered_map<std::string, CampaignSchema> LoadConfig(const std::string& path) const;

    // Converts one "data" item (already schema-valid) into its configuration.
    VectorProducerConfig LoadVectorProducerConfig(const rapidjson::Value& item) const;
};

}  // namespace fact
