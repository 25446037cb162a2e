#include "fact/InputEvent.h"

#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/schema.h>

#include <memory>
#include <stdexcept>

#include "fact/JsonUtils.h"

namespace fact {

const char* const InputEvent::kSchema = R"({
  "$schema": "http://json-schema.org/draft-07/schema#",
  "type": "object",
  "properties": {
    "data_producer": {
      "type": "string",
      "description": "The data producer for this campaign."
    },
    "attributes": {
      "type": "array",
      "minItems": 1,
      "uniqueItems": true,
      "items": {
        "type": "object",
        "properties": {
          "key": {"type": "string"},
          "value": {"type": "string"}
        },
        "required": ["key", "value"]
      }
    }
  },
  "required": ["data_producer", "attributes"]
})";

namespace {

// Parsed on first use, once per process; null when the text does not parse.
const rapidjson::SchemaDocument* eventSchema() {
    static const std::unique_ptr<rapidjson::SchemaDocument> schema = [] {
        rapidjson::Document doc;
        doc.Parse(InputEvent::kSchema);
        return doc.HasParseError() ? nullptr : std::make_unique<rapidjson::SchemaDocument>(doc);
    }();
    return schema.get();
}

}  // namespace

InputEvent::InputEvent(const std::string& jsonText) {
    if (jsonText.empty()) {
        throw std::runtime_error("Empty InputEvent json");
    }
    if (jsonText.size() > kMaxJsonSize) {
        throw std::runtime_error("Oversized InputEvent json: " + std::to_string(jsonText.size()) +
                                 " bytes, limit " + std::to_string(kMaxJsonSize));
    }
    const rapidjson::SchemaDocument* schema = eventSchema();
    if (schema == nullptr) {
        throw std::runtime_error("Failed to parse Input Event schema");
    }
    // One pass parses, validates and builds the DOM (no recursion, so no
    // nesting limit is needed). The messages keep the order of parsing
    // first: a validation failure is reported only once the whole text is
    // known to parse.
    rapidjson::MemoryStream memory(jsonText.data(), jsonText.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(memory);
    rapidjson::SchemaValidatingReader<json::kParseFlags, decltype(input), rapidjson::UTF8<>> reader(
        input, *schema);
    rapidjson::Document doc;
    doc.Populate(reader);
    if (!reader.GetParseResult()) {
        rapidjson::ParseErrorCode code = reader.GetParseResult().Code();
        if (!reader.IsValid()) {
            rapidjson::Document syntax;
            syntax.Parse<json::kParseFlags>(jsonText.data(), jsonText.size());
            if (!syntax.HasParseError()) {
                throw std::runtime_error(json::ValidationError(
                    reader.GetInvalidSchemaPointer(), reader.GetInvalidSchemaKeyword(),
                    reader.GetInvalidDocumentPointer(), "Invalid keyword: "));
            }
            code = syntax.GetParseError();
        }
        throw std::runtime_error(std::string("Failed to parse json: ") +
                                 rapidjson::GetParseError_En(code));
    }
    dataProducer.assign(doc["data_producer"].GetString(), doc["data_producer"].GetStringLength());
    const auto& items = doc["attributes"].GetArray();
    attributes.reserve(items.Size());
    for (const auto& item : items) {
        const auto& key = item["key"];
        const auto& value = item["value"];
        attributes.emplace(std::string(key.GetString(), key.GetStringLength()),
                           std::string(value.GetString(), value.GetStringLength()));
    }
}

}  // namespace fact
