#pragma once
// The daemon-side delegate of the binder service: every incoming request
// becomes one call here, on the binder thread that received it. Several
// threads may call at once, so implementations must be thread-safe.
//
// A gradient-file request is answered twice: the returned status goes back to
// the caller at once (0 accepts it), and `done`, if the implementation calls
// it at all, reports completion later, from any thread, to the client's
// callback. A non-zero status reaches the client unchanged as the
// service-specific error code.

#include <functional>
#include <memory>
#include <string>

#include "daemon/VemoStatus.h"
#include "ipc/FlgrFileRequest.h"
#include "vemocore/FlgrResultTypes.h"

namespace vemo {
namespace ipc {

class ServiceConnector {
  public:
    using FlgrDone = std::function<void(VemoStatus, std::shared_ptr<FlgrResultContext>,
                                        std::shared_ptr<FlgrResults>)>;

    virtual ~ServiceConnector() = default;

    virtual VemoStatus flgrRequest(const std::string& client, const FlgrFileRequest& request,
                                   FlgrDone done) = 0;
    virtual VemoStatus factRequest(const std::string& client, const std::string& dataProducer,
                                   const std::string& message) = 0;
    // A callable the connector may run when its side is reset.
    virtual VemoStatus registerResetCb(std::function<void()> callback) = 0;
};

}  // namespace ipc
}  // namespace vemo
