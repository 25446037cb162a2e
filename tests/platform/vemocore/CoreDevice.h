#pragma once
// One in-process device for the core's tests: a real handle whose results are
// recorded, and helpers that play the cloud's side of a session.

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "secagg/MaskDirective.h"
#include "secagg/ParticipationRequest.h"
#include "vemocore/vemo_core.h"

namespace vemocore {
namespace test {

struct Received {
    std::vector<int32_t> words;  // integral results
    std::vector<uint8_t> blob;   // FLGR results
    std::string first, second, third;
    std::thread::id thread;
};

class CoreDevice {
  public:
    explicit CoreDevice(const VemoCoreConfig& config = {VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1, 0});
    ~CoreDevice() { finish(); }

    // Initiates an integral request; the code goes to `code`, the parsed
    // request is returned (default when the core gave no text).
    secagg::ParticipationRequest initiate(const std::vector<int32_t>& data, int& code,
                                          const std::string& name = "app",
                                          const std::string& second = "meta");
    secagg::ParticipationRequest initiateFlgr(const std::vector<float>& values, float scale);

    // Destroys the handle (waiting for deliveries) and returns what arrived.
    std::vector<Received> finish();

    VemoHandle handle = nullptr;

  private:
    static void onIntegral(VemoIntegralResult result, void* userdata);
    static void onFlgr(VemoFlgrResult result, void* userdata);

    std::mutex lock_;
    std::vector<Received> received_;  // guarded by lock_
};

// The directive the cloud sends to `request`'s device.
secagg::MaskDirective directiveFor(const secagg::ParticipationRequest& request,
                                   const secagg::SessionId& session,
                                   std::vector<secagg::PublicKey> neighbours);

secagg::SessionId randomSession();

}  // namespace test
}  // namespace vemocore
