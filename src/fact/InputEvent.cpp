#include "fact/InputEvent.h"

#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/schema.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "fact/JsonUtils.h"
#include "fact/StackDocument.h"

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

bool isName(const rapidjson::Value& name, const char* text, rapidjson::SizeType length) {
    return name.GetStringLength() == length && std::memcmp(name.GetString(), text, length) == 0;
}

// Reads the shape producers send: an object with one string "data_producer"
// and one non-empty "attributes" array whose items hold exactly a string
// "key" and a string "value", keys all different. Such a document satisfies
// the schema, so validating it would only repeat these checks at several
// times their cost. Returns false for anything else, and the schema decides.
bool readPlainEvent(const rapidjson::Value& doc, std::string& dataProducer,
                    std::unordered_map<std::string, std::string>& attributes) {
    if (!doc.IsObject()) {
        return false;
    }
    const rapidjson::Value* producer = nullptr;
    const rapidjson::Value* items = nullptr;
    for (const auto& member : doc.GetObject()) {
        const rapidjson::Value** slot = isName(member.name, "data_producer", 13) ? &producer
                                        : isName(member.name, "attributes", 10)  ? &items
                                                                                 : nullptr;
        if (slot == nullptr) {
            continue;
        }
        if (*slot != nullptr) {
            return false;
        }
        *slot = &member.value;
    }
    if (producer == nullptr || !producer->IsString() || items == nullptr || !items->IsArray() ||
        items->Empty()) {
        return false;
    }
    attributes.reserve(items->Size());
    for (const auto& item : items->GetArray()) {
        if (!item.IsObject() || item.MemberCount() != 2) {
            return false;
        }
        const auto first = item.MemberBegin();
        const auto second = first + 1;
        const bool keyFirst = isName(first->name, "key", 3) && isName(second->name, "value", 5);
        if (!keyFirst && !(isName(first->name, "value", 5) && isName(second->name, "key", 3))) {
            return false;
        }
        const rapidjson::Value& key = keyFirst ? first->value : second->value;
        const rapidjson::Value& value = keyFirst ? second->value : first->value;
        if (!key.IsString() || !value.IsString() ||
            !attributes
                 .emplace(std::string(key.GetString(), key.GetStringLength()),
                          std::string(value.GetString(), value.GetStringLength()))
                 .second) {
            return false;
        }
    }
    dataProducer.assign(producer->GetString(), producer->GetStringLength());
    return true;
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
    {
        StackDocument stack;
        rapidjson::Document& doc = stack.get();
        doc.Parse<json::kParseFlags>(jsonText.data(), jsonText.size());
        if (doc.HasParseError()) {
            throw std::runtime_error(std::string("Failed to parse json: ") +
                                     rapidjson::GetParseError_En(doc.GetParseError()));
        }
        if (readPlainEvent(doc, dataProducer, attributes)) {
            return;
        }
        attributes.clear();
    }
    const rapidjson::SchemaDocument* schema = eventSchema();
    if (schema == nullptr) {
        throw std::runtime_error("Failed to parse Input Event schema");
    }
    // The text parses but is not of the plain shape: one pass validates and
    // builds the DOM (no recursion, so no nesting limit is needed).
    rapidjson::MemoryStream memory(jsonText.data(), jsonText.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(memory);
    rapidjson::SchemaValidatingReader<json::kParseFlags, decltype(input), rapidjson::UTF8<>> reader(
        input, *schema);
    rapidjson::Document doc;
    doc.Populate(reader);
    if (!reader.GetParseResult()) {
        if (!reader.IsValid()) {
            throw std::runtime_error(json::ValidationError(
                reader.GetInvalidSchemaPointer(), reader.GetInvalidSchemaKeyword(),
                reader.GetInvalidDocumentPointer(), "Invalid keyword: "));
        }
        throw std::runtime_error(std::string("Failed to parse json: ") +
                                 rapidjson::GetParseError_En(reader.GetParseResult().Code()));
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
