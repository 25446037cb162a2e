#pragma once
// One event for the cloud: a namespace and name that say what it is, a payload
// text, the path under the cloud's base URL it is posted to, and the version of
// the payload's format.
//
// The flag and the three trailing texts belong to the library's signature; the
// host stand-in carries them but sends every event asynchronously and puts none
// of the three texts on the wire.
//
// Immutable value; safe to share between threads.

#include <string>

namespace tolmocomm {

class TolmoEvent {
  public:
    TolmoEvent(std::string nameSpace, std::string name, std::string payload, std::string eventPath,
               bool synchronous, std::string payloadVersion, std::string dialogRequestId,
               std::string correlationToken, std::string contextId);

    const std::string& getNamespace() const { return nameSpace_; }
    const std::string& getName() const { return name_; }
    const std::string& getPayload() const { return payload_; }
    const std::string& getEventPath() const { return eventPath_; }
    bool isSynchronous() const { return synchronous_; }
    const std::string& getPayloadVersion() const { return payloadVersion_; }
    const std::string& getDialogRequestId() const { return dialogRequestId_; }
    const std::string& getCorrelationToken() const { return correlationToken_; }
    const std::string& getContextId() const { return contextId_; }

  private:
    std::string nameSpace_;
    std::string name_;
    std::string payload_;
    std::string eventPath_;
    bool synchronous_;
    std::string payloadVersion_;
    std::string dialogRequestId_;
    std::string correlationToken_;
    std::string contextId_;
};

}  // namespace tolmocomm
