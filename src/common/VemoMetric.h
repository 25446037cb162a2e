#pragma once
// A metrics record handle: create it on the stack, add data points, and let
// it go out of scope, which emits the record once.
//
//   VemoMetric("group", "schema", "Name");  // counts one "Name" occurrence
//
// Used by one thread at a time.

#include <memory>
#include <string>

#include "common/VemoMetricImpl.h"

namespace vemo {

class VemoMetric {
  public:
    // The boolean is accepted and ignored.
    VemoMetric(bool, const std::string& group, const std::string& schema, const std::string& name);
    // As above, then adds the counter data point (name, 1).
    VemoMetric(const std::string& group, const std::string& schema, const std::string& name);
    virtual ~VemoMetric();
    VemoMetric(const VemoMetric&) = delete;
    VemoMetric& operator=(const VemoMetric&) = delete;

    void addCounterDataPoint(const std::string& key, int value);

  private:
    std::unique_ptr<VemoMetricImpl> impl_;
};

}  // namespace vemo
