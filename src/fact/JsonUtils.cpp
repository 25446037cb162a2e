#include "fact/JsonUtils.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace fact {
namespace json {

bool TooDeep(const rapidjson::Value& root) {
    std::vector<std::pair<const rapidjson::Value*, int>> pending{{&root, 1}};
    while (!pending.empty()) {
        const auto [value, depth] = pending.back();
        pending.pop_back();
        if (value->IsArray()) {
            if (depth > kMaxDepth)
                return true;
            for (const auto& item : value->GetArray()) {
                if (item.IsArray() || item.IsObject())
                    pending.emplace_back(&item, depth + 1);
            }
        } else if (value->IsObject()) {
            if (depth > kMaxDepth)
                return true;
            for (const auto& member : value->GetObject()) {
                if (member.value.IsArray() || member.value.IsObject()) {
                    pending.emplace_back(&member.value, depth + 1);
                }
            }
        }
    }
    return false;
}

ArrayItems CountArrayItems(const rapidjson::Value& root) {
    ArrayItems items;
    std::vector<const rapidjson::Value*> pending{&root};
    while (!pending.empty()) {
        const rapidjson::Value* value = pending.back();
        pending.pop_back();
        if (value->IsArray()) {
            items.total += value->Size();
            items.longest = std::max<size_t>(items.longest, value->Size());
            for (const auto& item : value->GetArray()) {
                pending.push_back(&item);
            }
        } else if (value->IsObject()) {
            for (const auto& member : value->GetObject()) {
                pending.push_back(&member.value);
            }
        }
    }
    return items;
}

const char* TypeName(const rapidjson::Value& value) {
    static const char* const kNames[] = {"Null",  "False",  "True",  "Object",
                                         "Array", "String", "Number"};
    return kNames[value.GetType()];
}

std::string ValidationError(const rapidjson::Pointer& schemaPointer, const char* keyword,
                            const rapidjson::Pointer& documentPointer, const char* keywordLabel) {
    rapidjson::StringBuffer schemaText;
    schemaPointer.StringifyUriFragment(schemaText);
    rapidjson::StringBuffer documentText;
    documentPointer.StringifyUriFragment(documentText);
    std::string text = "Invalid schema: ";
    text += schemaText.GetString();
    text += "\n";
    text += keywordLabel;
    text += keyword;
    text += "\nInvalid document: ";
    text += documentText.GetString();
    return text;
}

std::string ValidationError(const rapidjson::SchemaValidator& validator, const char* keywordLabel) {
    return ValidationError(validator.GetInvalidSchemaPointer(), validator.GetInvalidSchemaKeyword(),
                           validator.GetInvalidDocumentPointer(), keywordLabel);
}

std::string Serialize(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace json
}  // namespace fact
