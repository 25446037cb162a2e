#pragma once
// One in-process device for the core's tests: a real handle whose results are
// recorded, and the cloud's side of a session.

#include <chrono>
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
    std::vector<uint32_t> words;  // integral results, or FLGR blobs read as words
    std::string texts;            // the record's three texts, joined by "|"
    std::thread::id thread;
};

class CoreDevice {
  public:
    // Each delivery takes `delay` before it is recorded.
    explicit CoreDevice(std::chrono::milliseconds delay = std::chrono::milliseconds(0));
    ~CoreDevice() { finish(); }

    // The core's code goes to `code` (or is expected to be 0); the request is
    // parsed from its text.
    secagg::ParticipationRequest initiate(const std::vector<int32_t>& data, int& code);
    secagg::ParticipationRequest initiate(const std::vector<int32_t>& data);
    secagg::ParticipationRequest initiateFlgr(const std::vector<float>& values, float scale);
    // Destroys the handle (waiting for deliveries) and returns what arrived.
    std::vector<Received> finish();
    size_t delivered();

    VemoHandle handle = nullptr;

  private:
    secagg::ParticipationRequest parsed(char* out);
    void record(const uint32_t* words, size_t count, const std::string& texts);

    const std::chrono::milliseconds delay_;
    std::mutex lock_;
    std::vector<Received> received_;  // guarded by lock_
};

// The directive the cloud sends for `request`.
secagg::MaskDirective directiveFor(const secagg::ParticipationRequest& request,
                                   std::vector<secagg::PublicKey> neighbours);

}  // namespace test
}  // namespace vemocore
