#pragma once
// A stand-in for the secure-aggregation core in tests: linked in place of
// `vemocore` (library `vemocore_scripted`), it implements the whole operation
// table with codes the test chooses, records what it was called with, and
// delivers results only when the test asks.
//
// One process-wide script, since the operation table is process-wide; call
// reset() at the start of each test. Thread-safe: `lock_` guards every field,
// so the code under test may call from any thread.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "vemocore/vemo_core.h"

namespace vemo {
namespace test {

class ScriptedCore {
  public:
    // The codes each operation returns (all 0 after reset()).
    struct Codes {
        int registerLogging = 0;
        int create = 0;
        int registerFlgr = 0;
        int registerIntegral = 0;
        int flgrInitiate = 0;
        int integralInitiate = 0;
        int mask = 0;
        int destroyString = 0;
        int destroy = 0;
    };
    // What the core was called with.
    struct Calls {
        VemoLogCallback logCallback = nullptr;
        int logMaxLevel = 0;
        VemoFlgrResultCallback flgrCallback = nullptr;
        VemoIntegralResultCallback integralCallback = nullptr;
        VemoCoreConfig config{};
        void* userdata = nullptr;
        std::vector<VemoHandle> destroyed;
        std::vector<std::string> integralNames;
        std::vector<std::vector<int32_t>> integralData;
        std::vector<std::vector<uint8_t>> flgrBlobs;
        std::vector<float> flgrScales;
        std::vector<std::string> flgrMetadata;
        std::vector<std::string> masks;
    };

    static ScriptedCore& instance();

    // All codes 0, nothing recorded, initiate output "request-<n>".
    void reset();
    void setCodes(const Codes& codes);
    // The text initiate calls hand out; `present` false hands out null.
    void setInitiateOutput(const std::string& text, bool present = true);

    Calls calls();
    // The handle vemoHandleCreate hands out.
    VemoHandle handle() const;

    // Call the registered result callbacks with the recorded userdata, on the
    // calling thread; false when none is registered.
    bool deliverIntegral(const std::vector<int32_t>& data, const std::string& firstText,
                         const std::string& secondText, const std::string& thirdText);
    bool deliverFlgr(const std::vector<uint8_t>& blob);
    // Log through the registered log callback; false when none is registered.
    bool log(VemoLogLevel level, const char* text);

    // Used by the operation table.
    std::mutex lock_;
    Codes codes_;                // guarded by lock_
    Calls calls_;                // guarded by lock_
    std::string output_;         // guarded by lock_
    bool outputPresent_ = true;  // guarded by lock_
    int outputs_ = 0;            // guarded by lock_
};

}  // namespace test
}  // namespace vemo
