#include "fact/upload/CampaignMetadata.h"

#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>

#include "common/VemoLogger.h"

namespace fact {
namespace {

const vemo::VemoLogger logger("DataIngestionClient");

[[noreturn]] void fail(const char* function, const std::string& message) {
    logger.e("%s:%s", function, message.c_str());
    throw std::invalid_argument(message);
}

std::string parseErrorCode(const rapidjson::Document& document) {
    return std::to_string(static_cast<int>(document.GetParseError()));
}

// A schema text parsed once: parsing the two schemas on every upload cost
// ten times the parse of the metadata itself. Immutable after construction,
// so validators on several threads may share it.
class ParsedSchema {
  public:
    explicit ParsedSchema(const char* text) : mJson(parse(text)), mSchema(mJson) {}
    const rapidjson::SchemaDocument& schema() const { return mSchema; }

  private:
    static rapidjson::Document parse(const char* text) {
        rapidjson::Document json;
        json.Parse(text);
        if (json.HasParseError()) {
            fail("validateJson",
                 "Failed to parse schema json string, error code " + parseErrorCode(json));
        }
        return json;
    }

    const rapidjson::Document mJson;
    const rapidjson::SchemaDocument mSchema;
};

bool validateAgainst(const rapidjson::Document& document, rapidjson::SchemaValidator& validator) {
    validator.Reset();
    if (document.Accept(validator)) {
        return true;
    }
    rapidjson::StringBuffer schemaPointer;
    rapidjson::StringBuffer documentPointer;
    validator.GetInvalidSchemaPointer().StringifyUriFragment(schemaPointer);
    validator.GetInvalidDocumentPointer().StringifyUriFragment(documentPointer);
    logger.d("%s:Schema mismatch at %s, keyword %s, document %s", "validateJson",
             schemaPointer.GetString(), validator.GetInvalidSchemaKeyword(),
             documentPointer.GetString());
    return false;
}

}  // namespace

const char kCampaignMetadataSchema[] =
    "{\n    \"type\": \"object\",\n    \"properties\": {\n        \"differential_privacy\": {\n"
    "            \"type\": \"string\"\n        },\n        \"campaign_id\": {\n"
    "            \"type\": \"string\"\n        }\n    },\n"
    "    \"required\": [\"differential_privacy\", \"campaign_id\"],\n"
    "    \"additionalProperties\": false\n}";

const char kDifferentialPrivacySchema[] =
    "{\n    \"type\": \"object\",\n    \"properties\": {\n        \"cohort_size\": {\n"
    "            \"type\": \"integer\"\n        }\n    },\n    \"required\": [\"cohort_size\"],\n"
    "    \"additionalProperties\": false\n  }";

CampaignMetadata parseCampaignMetadata(const std::string& text) {
    const char* const fn = "parseCampaignMetadata";
    rapidjson::Document metadata;
    // Iterative: the text comes from outside, and nesting must not reach the stack.
    metadata.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
    if (metadata.HasParseError()) {
        fail(fn, "Failed to parse campaign metadata json string, error code " +
                     parseErrorCode(metadata));
    }
    static const ParsedSchema metadataSchema(kCampaignMetadataSchema);
    static const ParsedSchema privacySchema(kDifferentialPrivacySchema);
    // A validator's stacks are allocated on construction; each thread keeps
    // its own pair and resets them.
    thread_local rapidjson::SchemaValidator metadataValidator(metadataSchema.schema());
    thread_local rapidjson::SchemaValidator privacyValidator(privacySchema.schema());
    if (!validateAgainst(metadata, metadataValidator)) {
        fail(fn, "Invalid campaign metadata json string");
    }
    const rapidjson::Value& privacyText = metadata["differential_privacy"];
    rapidjson::Document privacy;
    privacy.Parse<rapidjson::kParseIterativeFlag>(privacyText.GetString(),
                                                  privacyText.GetStringLength());
    if (privacy.HasParseError()) {
        fail(fn, "Failed to parse differential privacy json string, error code " +
                     parseErrorCode(privacy));
    }
    // The schema's "integer" admits any integral number; the upload document
    // carries the size as an unsigned 32-bit value.
    if (!validateAgainst(privacy, privacyValidator) || !privacy["cohort_size"].IsInt() ||
        privacy["cohort_size"].GetInt() < 0) {
        fail(fn, "Invalid differential privacy json string");
    }
    CampaignMetadata result;
    const rapidjson::Value& campaignId = metadata["campaign_id"];
    result.campaignId.assign(campaignId.GetString(), campaignId.GetStringLength());
    result.cohortSize = privacy["cohort_size"].GetInt();
    result.vectorEncoding = VectorEncoding::kBase64;
    result.elementDatatypeEndianness = false;
    return result;
}

std::string createJsonPayload(const std::string& encodedVector, const CampaignMetadata& metadata,
                              const std::string& applicationId, const std::string& cohortId) {
    // The vector dominates the document: one allocation instead of a series of regrowths.
    rapidjson::StringBuffer buffer(nullptr, encodedVector.size() + metadata.campaignId.size() +
                                                applicationId.size() + cohortId.size() + 256);
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("campaignId");
    writer.String(metadata.campaignId);
    writer.Key("maskedFederatedAnalyticsData");
    writer.StartObject();
    writer.Key("applicationId");
    writer.String(applicationId);
    writer.Key("cohortId");
    writer.String(cohortId);
    writer.Key("cohortSize");
    writer.Uint(static_cast<unsigned>(metadata.cohortSize));
    writer.Key("maskedFederatedAnalyticsVector");
    writer.String(encodedVector);
    writer.Key("vectorEncoding");
    writer.String(toString(metadata.vectorEncoding));
    writer.Key("elementDatatypeEndianness");
    writer.Bool(metadata.elementDatatypeEndianness);
    writer.EndObject();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

bool validateJson(const rapidjson::Document& document, const char* schemaText) {
    const ParsedSchema schema(schemaText);
    rapidjson::SchemaValidator validator(schema.schema());
    return validateAgainst(document, validator);
}

}  // namespace fact
