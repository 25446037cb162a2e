#include "common/VemoMetric.h"

namespace vemo {

VemoMetric::VemoMetric(bool, const std::string& group, const std::string& schema,
                       const std::string& name)
    : impl_(new VemoMetricImpl(group, schema, name)) {}

VemoMetric::VemoMetric(const std::string& group, const std::string& schema, const std::string& name)
    : VemoMetric(false, group, schema, name) {
    impl_->addCounterDataPoint(name, 1);
}

VemoMetric::~VemoMetric() = default;

void VemoMetric::addCounterDataPoint(const std::string& key, int value) {
    impl_->addCounterDataPoint(key, value);
}

}  // namespace vemo
