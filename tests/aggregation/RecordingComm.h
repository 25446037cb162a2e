#pragma once
// A cloud library that records what the manager hands it and lets the test
// play the cloud's side: call the directive handler, answer an event.
// Thread-safe enough for the single-threaded tests that use it.

#include <mutex>
#include <vector>

#include "tolmocomm/ITolmoComm.h"

namespace vemo {
namespace test {

class RecordingComm : public tolmocomm::ITolmoComm {
  public:
    struct Sent {
        tolmocomm::TolmoEvent event;
        tolmocomm::EventResultCallback onResult;
    };

    void registerClient(const tolmocomm::TolmoEvent& capabilities,
                        std::shared_ptr<tolmocomm::ClientContext> context,
                        const std::vector<tolmocomm::DirectiveConfig>& directives,
                        tolmocomm::EventResultCallback onCapabilitiesResult,
                        tolmocomm::DirectiveCallback onDirective) override {
        std::lock_guard<std::mutex> guard(lock);
        announcements.push_back({capabilities, std::move(onCapabilitiesResult)});
        contextGiven = context != nullptr;
        subscriptions = directives;
        directiveHandler = std::move(onDirective);
    }
    void sendEvent(const tolmocomm::TolmoEvent& event,
                   tolmocomm::EventResultCallback onResult) override {
        std::lock_guard<std::mutex> guard(lock);
        events.push_back({event, std::move(onResult)});
    }
    void shutdown() override { ++shutdowns; }

    std::mutex lock;  // guards the members below
    std::vector<Sent> announcements;
    bool contextGiven = false;
    std::vector<tolmocomm::DirectiveConfig> subscriptions;
    tolmocomm::DirectiveCallback directiveHandler;
    std::vector<Sent> events;
    int shutdowns = 0;
};

}  // namespace test
}  // namespace vemo
