#include "fact/tdp/TdpConfigSchema.h"

#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include <memory>
#include <vector>

namespace fact {
namespace tdp {
namespace {

// "additionalProperties" inside "patternProperties" below is a pattern of
// that name (matching member names that contain it), not the keyword; the
// members of a sticky signal object may carry further members.
const char kSchemaText[] = R"({
    "type": "object",
    "properties": {
        "version": {"type": "string", "enum": ["1"]},
        "ecs_sensory_events": {
            "type": "object",
            "properties": {
                "event_emit_criteria": {
                    "type": "array",
                    "items": {"type": "string"},
                    "maxItems": 50
                },
                "output_priority": {
                    "type": "array",
                    "items": {"type": "string"},
                    "maxItems": 60,
                    "uniqueItems": true
                },
                "sticky_signal_config": {
                    "type": "object",
                    "maxProperties": 10,
                    "patternProperties": {
                        "^.*$": {
                            "type": "object",
                            "properties": {
                                "start_transition": {
                                    "type": "array",
                                    "items": {"type": "string"},
                                    "maxItems": 50
                                },
                                "end_transition": {
                                    "type": "array",
                                    "items": {"type": "string"},
                                    "maxItems": 50
                                }
                            },
                            "required": ["start_transition", "end_transition"]
                        },
                        "additionalProperties": false
                    }
                },
                "passthrough_config": {
                    "type": "object",
                    "maxProperties": 50,
                    "additionalProperties": {"type": "string"}
                }
            },
            "required": [
                "event_emit_criteria",
                "output_priority",
                "sticky_signal_config",
                "passthrough_config"
            ]
        }
    },
    "required": ["version", "ecs_sensory_events"]
})";

// RapidJSON builds no schema for a pattern whose value is not an object and
// then dereferences it for every member name the pattern matches: such a
// pattern becomes {} (no constraint), which is what a draft-04 validator
// makes of a non-schema there.
void replaceNonObjectPatterns(rapidjson::Value& schema) {
    std::vector<rapidjson::Value*> pending{&schema};
    while (!pending.empty()) {
        rapidjson::Value* const value = pending.back();
        pending.pop_back();
        if (value->IsArray()) {
            for (auto& item : value->GetArray()) {
                pending.push_back(&item);
            }
            continue;
        }
        if (!value->IsObject()) {
            continue;
        }
        for (auto& member : value->GetObject()) {
            if (member.name == "patternProperties" && member.value.IsObject()) {
                for (auto& pattern : member.value.GetObject()) {
                    if (!pattern.value.IsObject()) {
                        pattern.value.SetObject();
                    }
                }
            }
            pending.push_back(&member.value);
        }
    }
}

std::unique_ptr<rapidjson::SchemaDocument> parseSchema() {
    rapidjson::Document document;
    document.Parse(kSchemaText);
    if (document.HasParseError()) {
        return nullptr;
    }
    replaceNonObjectPatterns(document);
    return std::unique_ptr<rapidjson::SchemaDocument>(new rapidjson::SchemaDocument(document));
}

std::string pointerText(const rapidjson::Pointer& pointer) {
    rapidjson::StringBuffer buffer;
    pointer.Stringify(buffer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

const char* TdpConfigSchema::text() {
    return kSchemaText;
}

const rapidjson::SchemaDocument* TdpConfigSchema::schema() {
    static const std::unique_ptr<rapidjson::SchemaDocument> parsed = parseSchema();
    return parsed.get();
}

TdpConfigSchema::Result TdpConfigSchema::validate(const std::string& json, Failure& failure) {
    const rapidjson::SchemaDocument* parsed = schema();
    if (parsed == nullptr) {
        return Result::kSchemaUnusable;
    }
    rapidjson::SchemaValidator validator(*parsed);
    rapidjson::Reader reader;
    rapidjson::MemoryStream stream(json.data(), json.size());
    reader.Parse<rapidjson::kParseIterativeFlag>(stream, validator);
    if (validator.IsValid()) {
        return Result::kValid;
    }
    failure.schemaPointer = pointerText(validator.GetInvalidSchemaPointer());
    failure.keyword = validator.GetInvalidSchemaKeyword();
    failure.documentPointer = pointerText(validator.GetInvalidDocumentPointer());
    return Result::kInvalid;
}

}  // namespace tdp
}  // namespace fact
