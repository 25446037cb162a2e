#pragma once
// Reads a campaign document from a file, validates it against the embedded
// campaign schema (parsed once per process) and converts it into a
// CampaignSchema. Every failure is one std::runtime_error whose text starts
// "Failed to load campaign config from path: <path> Error: " followed by the
// text of the step that failed; no partial record is ever returned.
//
// Holds only a shared pointer to the parsed schema; any thread.

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>

#include <rapidjson/document.h>

#include "fact/CampaignSchema.h"

namespace fact {

class CampaignSchemaProvider {
  public:
    struct ParsedSchema;

    // Bounds on a document's arrays, checked before validation: the longest
    // one (4096 bins in one attribute) and all of them together.
    static constexpr size_t kMaxArrayItems = 4096;
    static constexpr size_t kMaxTotalArrayItems = 16384;

    // Validates against the embedded campaign schema.
    CampaignSchemaProvider();
    // Validates against another schema text (parsed here, once). The
    // conversion still expects the campaign document's structure; this is
    // the seam for exercising the conversion's own checks.
    explicit CampaignSchemaProvider(const std::string& schemaText);

    // One entry, keyed by the document's "campaign_id".
    std::unordered_map<std::string, CampaignSchema> LoadConfig(const std::string& path) const;

    // Converts one "data" item (already schema-valid) into its configuration.
    VectorProducerConfig LoadVectorProducerConfig(const rapidjson::Value& item) const;

  private:
    std::shared_ptr<const ParsedSchema> mSchema;
};

}  // namespace fact
