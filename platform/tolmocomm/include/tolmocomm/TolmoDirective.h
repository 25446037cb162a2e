#pragma once
// One directive from the cloud, as handed to the handler registered for its
// namespace and name. The payload is the directive's own text (usually JSON);
// the other fields are the texts of its header, empty when the cloud sent none.
//
// Immutable value; valid after the handler returns only as a copy.

#include <string>

namespace tolmocomm {

class TolmoDirective {
  public:
    TolmoDirective(std::string nameSpace, std::string name, std::string messageId, std::string keys,
                   std::string payload, std::string payloadVersion,
                   std::string eventCorrelationToken)
        : nameSpace_(std::move(nameSpace)),
          name_(std::move(name)),
          messageId_(std::move(messageId)),
          keys_(std::move(keys)),
          payload_(std::move(payload)),
          payloadVersion_(std::move(payloadVersion)),
          eventCorrelationToken_(std::move(eventCorrelationToken)) {}

    const std::string& getNamespace() const { return nameSpace_; }
    const std::string& getName() const { return name_; }
    const std::string& getMessageId() const { return messageId_; }
    const std::string& getKeys() const { return keys_; }
    const std::string& getPayload() const { return payload_; }
    const std::string& getPayloadVersion() const { return payloadVersion_; }
    const std::string& getEventCorrelationToken() const { return eventCorrelationToken_; }

  private:
    std::string nameSpace_;
    std::string name_;
    std::string messageId_;
    std::string keys_;
    std::string payload_;
    std::string payloadVersion_;
    std::string eventCorrelationToken_;
};

}  // namespace tolmocomm
