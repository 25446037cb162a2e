#include "tolmocomm/TolmoEvent.h"

namespace tolmocomm {

TolmoEvent::TolmoEvent(std::string nameSpace, std::string name, std::string payload,
                       std::string eventPath, bool synchronous, std::string payloadVersion,
                       std::string dialogRequestId, std::string correlationToken,
                       std::string contextId)
    : nameSpace_(std::move(nameSpace)),
      name_(std::move(name)),
      payload_(std::move(payload)),
      eventPath_(std::move(eventPath)),
      synchronous_(synchronous),
      payloadVersion_(std::move(payloadVersion)),
      dialogRequestId_(std::move(dialogRequestId)),
      correlationToken_(std::move(correlationToken)),
      contextId_(std::move(contextId)) {}

}  // namespace tolmocomm
