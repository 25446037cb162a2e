#pragma once
// Owns the one handle of the secure-aggregation core and turns the core's
// conventions (integer codes, strings the caller releases, one userdata word)
// into exceptions, owned strings and std::function callbacks; every failure is
// counted in the analytics heartbeat metric.
//
// Ownership: held through a std::shared_ptr and never copied or moved, since
// its own address is the userdata the core hands back to the result
// callbacks. Thread-safety: no lock of its own. Set both callbacks right after
// construction, before the first request; the core calls them on its own
// thread. Request operations may be called from any thread (the core
// serialises them).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/VemoStatus.h"
#include "vemocore/vemo_core.h"

// Forwards the core's log lines to the daemon's log at the matching level.
void vemoCoreLogCallback(VemoLogLevel level, const char* text);

namespace vemo {

class VemoCoreWrapper {
  public:
    // Protocol 0 with the creation words 12, 1, 12, 1.
    VemoCoreWrapper();
    // Throws std::runtime_error when the core refuses a step.
    VemoCoreWrapper(VemoPreferredProtocol protocol, unsigned p1, unsigned p2, unsigned p3,
                    unsigned p4);
    ~VemoCoreWrapper();
    VemoCoreWrapper(const VemoCoreWrapper&) = delete;
    VemoCoreWrapper& operator=(const VemoCoreWrapper&) = delete;

    void setVemoFlgrResultCallback(std::function<void(VemoFlgrResult)> callback);
    void setVemoIntegralResultCallback(std::function<void(VemoIntegralResult)> callback);

    // Return 0 with the participation request in `out`; throw
    // std::runtime_error otherwise.
    int flgrInitiateNewRequest(const std::string& applicationId, std::vector<uint8_t> blob,
                               float scaleValue, const std::string& metadata, std::string& out);
    int integralInitiateNewRequest(const std::string& name, const int* data, unsigned count,
                                   const std::string& second, std::string& out);

    // Never throws: the core's code mapped to a status (0 success or
    // eviction, 1 invalid argument, 6 any other failure).
    VemoStatus mask(const std::string& directive);

  private:
    friend void vemoFlgrResultCallback(VemoFlgrResult result, void* userdata);
    friend void vemoIntegralResultCallback(VemoIntegralResult result, void* userdata);

    std::function<void(VemoFlgrResult)> flgrResultCallback_;
    std::function<void(VemoIntegralResult)> integralResultCallback_;
    VemoHandle handle_ = nullptr;
};

// The core's result callbacks: userdata is the wrapper.
void vemoFlgrResultCallback(VemoFlgrResult result, void* userdata);
void vemoIntegralResultCallback(VemoIntegralResult result, void* userdata);

}  // namespace vemo
