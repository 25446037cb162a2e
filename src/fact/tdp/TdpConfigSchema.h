#pragma once
// The JSON schema of the telemetry producer's configuration (a campaign's
// "data_producer_config"), carried as text and parsed once per process.
// TdpManager validates every configuration against it before the handler
// and the storage read it, so they can rely on its shape.
//
// Thread-safe: the parsed schema is immutable after its first use, and each
// validation uses its own validator.

#include <rapidjson/schema.h>

#include <string>

namespace fact {
namespace tdp {

class TdpConfigSchema {
  public:
    // Where a configuration broke the schema, as JSON pointers and keyword.
    struct Failure {
        std::string schemaPointer;
        std::string keyword;
        std::string documentPointer;
    };
    enum class Result { kValid, kInvalid, kSchemaUnusable };

    // The schema text as carried.
    static const char* text();

    // The parsed schema, or null if the carried text does not parse.
    static const rapidjson::SchemaDocument* schema();

    // Validates configuration text that is known to parse. Streams the text
    // through the validator without building a DOM and without recursion, so
    // deeply nested extra members cannot exhaust the stack.
    static Result validate(const std::string& json, Failure& failure);
};

}  // namespace tdp
}  // namespace fact
