#pragma once
// A cloud library that records what the manager hands it and lets the test
// play the cloud: call the directive handler, answer an event. For tests
// that call from one thread.

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
                        std::shared_ptr<tolmocomm::ClientContext>,
                        const std::vector<tolmocomm::DirectiveConfig>&,
                        tolmocomm::EventResultCallback onCapabilitiesResult,
                        tolmocomm::DirectiveCallback onDirective) override {
        announcements.push_back({capabilities, std::move(onCapabilitiesResult)});
        directiveHandler = std::move(onDirective);
    }
    void sendEvent(const tolmocomm::TolmoEvent& event,
                   tolmocomm::EventResultCallback onResult) override {
        events.push_back({event, std::move(onResult)});
    }
    void shutdown() override {}

    std::vector<Sent> announcements;
    tolmocomm::DirectiveCallback directiveHandler;
    std::vector<Sent> events;
};

}  // namespace test
}  // namespace vemo
