#include "common/VemoMetricValidation.h"

namespace vemo {

bool VemoMetricValidation::isGroupAndSchemaValid(const std::string& group,
                                                 const std::string& schema) {
    return group.size() <= 49 && schema.size() < 50;
}

std::string VemoMetricValidation::sanitize(const std::string& text) {
    // Same set as the regular-expression class "[:|=|,]"; a plain scan avoids
    // building a regex for every data point.
    std::string out = text;
    for (char& c : out) {
        if (c == ':' || c == '|' || c == '=' || c == ',') {
            c = '-';
        }
    }
    return out;
}

}  // namespace vemo
