#pragma once
// Routes the analytics requests that arrive over IPC by the data producer
// that sent them: device events of "UnifiedSensingService" go to the
// telemetry producer's callback, campaign paths of "FactOrvuManager" create a
// campaign and are remembered in the campaign-path file, so that the campaign
// is created again at the next start. Other producers are logged and
// answered with success.
//
// Shared (std::shared_ptr) by the daemon and the IPC connector. Thread-safety:
// factRequest() runs on binder threads and takes no lock; the callback is
// registered once at start-up, before the service is published, and never
// changed afterwards. Two campaign requests at once may interleave their
// writes of the campaign-path file; the analytics library serialises the
// campaign creation itself.

#include <functional>
#include <string>

#include "daemon/VemoStatus.h"

namespace vemo {

class FactManager {
  public:
    static constexpr const char kUnifiedSensingService[] = "UnifiedSensingService";
    static constexpr const char kFactOrvuManager[] = "FactOrvuManager";

    // Stores (replaces) the callback that receives device events.
    void registerUnifiedSensingCallback(std::function<void(const std::string&)> callback);

    // Creates the campaign whose path the campaign-path file holds; nothing
    // (and no log line) when the file cannot be opened.
    void startupCampaign();

    // Creates the campaign at a device path and remembers the path, even when
    // the creation failed (the next start tries again).
    void startCampaign(const char* path);

    // Always 0: nothing a client sends here is refused.
    VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                           const std::string& payload);

  private:
    std::function<void(const std::string&)> unifiedSensingCallback_;
};

}  // namespace vemo
