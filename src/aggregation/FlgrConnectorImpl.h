#pragma once
// The daemon's connector behind the binder service: gradient-file requests go
// to the aggregation manager, analytics requests to the fact manager.
//
// Owned by the binder service object (through the host); holds the fact
// manager in shared ownership. Thread-safety: called on binder threads, several
// at once; it keeps no state of its own beyond the fact manager pointer.

#include <memory>

#include "aggregation/FactManager.h"
#include "ipc/ServiceConnector.h"

namespace vemo {

class FlgrConnectorImpl : public ipc::ServiceConnector {
  public:
    explicit FlgrConnectorImpl(std::shared_ptr<FactManager> factManager);

    // 3 when the manager refuses the request or fails, and `done` is then never
    // called; otherwise `done` runs at once with status 0 and no results
    // (the masked gradients go to the cloud, not back to the client).
    VemoStatus flgrRequest(const std::string& client, const ipc::FlgrFileRequest& request,
                           FlgrDone done) override;
    VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                           const std::string& payload) override;
    // Accepted and dropped: nothing here needs resetting.
    VemoStatus registerResetCb(std::function<void()> callback) override;

  private:
    std::shared_ptr<FactManager> factManager_;
};

}  // namespace vemo
