#pragma once
// One event a data producer sends in: the producer's name and the event's
// attributes, every value as text. Built from JSON text validated against an
// embedded draft-07 schema, which is parsed once per process.
//
// A plain value; immutable after construction.

#include <string>
#include <unordered_map>

namespace fact {

class InputEvent {
  public:
    // Longer event texts are refused: validating "uniqueItems" costs time
    // quadratic in the number of attributes, under the library's lock.
    static constexpr size_t kMaxJsonSize = 65536;

    // Throws std::runtime_error: "Empty InputEvent json", "Oversized
    // InputEvent json: <n> bytes, limit 65536", "Failed to parse
    // Input Event schema", "Failed to parse json: <error>" or "Invalid schema:
    // ...\nInvalid keyword: ...\nInvalid document: ...". A later duplicate key
    // keeps the first value.
    explicit InputEvent(const std::string& jsonText);

    // The embedded schema text.
    static const char* const kSchema;

    std::string dataProducer;
    std::unordered_map<std::string, std::string> attributes;
};

}  // namespace fact
