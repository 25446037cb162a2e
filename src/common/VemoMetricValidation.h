#pragma once
// The two checks applied to metrics records: name lengths, and the characters
// the metrics log uses as separators.

#include <string>

namespace vemo {

class VemoMetricValidation {
  public:
    // True when the group has at most 49 characters and the schema fewer than 50.
    static bool isGroupAndSchemaValid(const std::string& group, const std::string& schema);
    // A copy with every ':', '|', '=' and ',' replaced by '-'.
    static std::string sanitize(const std::string& text);
};

}  // namespace vemo
