#pragma once
// Small helpers shared by the JSON readers of the analytics library: parse
// flags, a nesting guard, type names and the validation-failure text.
//
// Stateless; any thread.

#include <rapidjson/document.h>
#include <rapidjson/schema.h>

#include <string>

namespace fact {
namespace json {

// Iterative parsing keeps deep input off the call stack; invalid UTF-8 is a
// parse error because every text read here may end up in an upload.
constexpr unsigned kParseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;

// Validation and serialisation recurse over the DOM, so deeper documents are
// refused before either runs.
constexpr int kMaxDepth = 64;

// True when arrays/objects nest deeper than kMaxDepth; walks iteratively.
bool TooDeep(const rapidjson::Value& root);

// The items of every array in a document, and the longest array's length;
// validating "uniqueItems" costs time quadratic in an array's length.
struct ArrayItems {
    size_t total = 0;
    size_t longest = 0;
};
ArrayItems CountArrayItems(const rapidjson::Value& root);

// "Null", "False", "True", "Object", "Array", "String", "Number".
const char* TypeName(const rapidjson::Value& value);

// "Invalid schema: <schema pointer>\n<keywordLabel><keyword>\nInvalid document: <doc pointer>".
std::string ValidationError(const rapidjson::Pointer& schemaPointer, const char* keyword,
                            const rapidjson::Pointer& documentPointer, const char* keywordLabel);
std::string ValidationError(const rapidjson::SchemaValidator& validator, const char* keywordLabel);

// Compact JSON text of a value.
std::string Serialize(const rapidjson::Value& value);

}  // namespace json
}  // namespace fact
