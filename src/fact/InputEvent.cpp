#include "fact/InputEvent.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
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
    const rapidjson::SchemaDocument* schema = eventSchema();
    if (schema == nullptr) {
        throw std::runtime_error("Failed to parse Input Event schema");
    }
    rapidjson::Document doc;
    doc.Parse<json::kParseFlags>(jsonText.data(), jsonText.size());
    if (doc.HasParseError()) {
        throw std::runtime_error(std::string("Failed to parse json: ") +
                                 rapidjson::GetParseError_En(doc.GetParseError()));
    }
    if (json::TooDeep(doc)) {
        throw std::runtime_error("Failed to parse json: Nesting deeper than 64 levels.");
    }
    rapidjson::SchemaValidator validator(*schema);
    if (!doc.Accept(validator)) {
        throw std::runtime_error(json::ValidationError(validator, "Invalid keyword: "));
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
