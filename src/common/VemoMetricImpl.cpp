#include "common/VemoMetricImpl.h"

#include <metricslog/metrics_log.h>

#include "common/VemoLogger.h"
#include "common/VemoMetricValidation.h"

namespace vemo {
namespace {
const VemoLogger logger("VemoMetricImpl");
}

VemoMetricImpl::VemoMetricImpl(const std::string& group, const std::string& schema,
                               const std::string& name)
    : group_(group), schema_(schema), name_(name) {
    if (!VemoMetricValidation::isGroupAndSchemaValid(group, schema)) {
        logger.e("%s:badgroupOrSchemaForMetric=%s", "VemoMetricImpl", name.c_str());
        return;
    }
    addStringDataPoint("_marketPlaceId", "");
    addStringDataPoint("_deviceLanguage", "");
    addStringDataPoint("_otaGroupName", "");
    addStringDataPoint("_countryOfResidence", "");
    addStringDataPoint("MetricName", name);
    valid_ = true;
}

VemoMetricImpl::~VemoMetricImpl() {
    if (!valid_) {
        return;
    }
    try {
        __metrics_log_print_v2(4, "vemod", group_.c_str(), schema_.c_str(), 100, "%s",
                               payload_.c_str());
    } catch (...) {
        // A destructor must not throw; a lost record is preferable.
    }
}

int VemoMetricImpl::addCounterDataPoint(const std::string& key, int value) {
    append(key, std::to_string(value), "IN");
    return 1;
}

int VemoMetricImpl::addStringDataPoint(const std::string& key, const std::string& value) {
    append(key, VemoMetricValidation::sanitize(value), "SY");
    return 1;
}

void VemoMetricImpl::append(const std::string& key, const std::string& value, const char* type) {
    if (!payload_.empty()) {
        payload_ += ',';
    }
    payload_ += VemoMetricValidation::sanitize(key);
    payload_ += '=';
    payload_ += value;
    payload_ += ';';
    payload_ += type;
}

}  // namespace vemo
