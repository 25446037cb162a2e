#pragma once
// Builds one metrics record and emits it exactly once, from its destructor,
// through the device metrics log (priority 4, tag "vemod", number 100).
// A record whose group or schema is too long is invalid and never emitted.
//
// Used by one thread at a time.

#include <string>

namespace vemo {

class VemoMetricImpl {
  public:
    VemoMetricImpl(const std::string& group, const std::string& schema, const std::string& name);
    virtual ~VemoMetricImpl();
    VemoMetricImpl(const VemoMetricImpl&) = delete;
    VemoMetricImpl& operator=(const VemoMetricImpl&) = delete;

    // Both append "key=value;IN" / "key=value;SY" and return 1.
    int addCounterDataPoint(const std::string& key, int value);
    int addStringDataPoint(const std::string& key, const std::string& value);

    const std::string& payload() const { return payload_; }
    bool valid() const { return valid_; }

  private:
    void append(const std::string& key, const std::string& value, const char* type);

    std::string group_;
    std::string schema_;
    std::string name_;
    std::string payload_;
    bool valid_ = false;
};

}  // namespace vemo
