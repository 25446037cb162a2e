#pragma once
// Member access for the protocol's strict JSON readers: an object whose
// members all have known, distinct names, read one typed member at a time.
// Each reader returns false and sets the reason on the first fault.

#include <rapidjson/document.h>

#include <cstdint>
#include <initializer_list>
#include <string>

namespace secagg {

class StrictObject {
  public:
    StrictObject(const rapidjson::Value& object, std::string& error)
        : object_(object), error_(error) {}

    // The object must have exactly these member names, each once.
    bool hasExactly(std::initializer_list<const char*> names);

    const rapidjson::Value* find(const char* name);
    bool string(const char* name, std::string& out);
    bool uint32(const char* name, uint32_t& out);
    bool constant(const char* name, const char* expected);
    bool versionOne();

    bool fail(const std::string& reason);

  private:
    const rapidjson::Value& object_;
    std::string& error_;
};

// Parses `text` as one JSON document; false with the reason on any fault
// (nesting is parsed without recursion, so depth cannot exhaust the stack).
bool parseDocument(const std::string& text, rapidjson::Document& document, std::string& error);

}  // namespace secagg
