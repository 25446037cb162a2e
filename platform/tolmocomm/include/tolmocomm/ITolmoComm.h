#pragma once
// The cloud-communication library as its clients see it: events go to the
// cloud, directives come back to the handlers that subscribed to them.
//
// Threads: every operation may be called from any thread and returns without
// waiting for the network. Result and directive handlers run on the library's
// own threads, one at a time per kind; they must not call shutdown().

#include <functional>
#include <memory>
#include <vector>

#include "tolmocomm/DirectiveConfig.h"
#include "tolmocomm/TolmoDirective.h"
#include "tolmocomm/TolmoEvent.h"
#include "tolmocomm/TolmoEventResult.h"

namespace tolmocomm {

// Device context a client may attach to its events; the host stand-in sends
// none, so it is declared only.
class ClientContext;

using EventResultCallback = std::function<void(const TolmoEventResult&)>;
using DirectiveCallback = std::function<void(const TolmoDirective&)>;

class ITolmoComm {
  public:
    virtual ~ITolmoComm() = default;

    // Announces the client's capabilities with `capabilities` (an event, whose
    // result goes to `onCapabilitiesResult`) and subscribes `onDirective` to
    // every directive listed in `directives`. A later registration of the
    // same namespace and name replaces the earlier handler.
    virtual void registerClient(const TolmoEvent& capabilities,
                                std::shared_ptr<ClientContext> context,
                                const std::vector<DirectiveConfig>& directives,
                                EventResultCallback onCapabilitiesResult,
                                DirectiveCallback onDirective) = 0;

    // Queues one event; `onResult` is called once with what became of it
    // (at once, on the calling thread, when the queue is full).
    virtual void sendEvent(const TolmoEvent& event, EventResultCallback onResult) = 0;

    // Stops the library's threads, abandoning any transfer in flight; queued
    // events are dropped unanswered and later events are answered
    // kNotDelivered at once. No handler runs after it returns. Idempotent.
    virtual void shutdown() = 0;
};

}  // namespace tolmocomm
