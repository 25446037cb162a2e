#pragma once
// What became of one event: a result code and the message id the event was
// sent under (empty when it never got one).
//
// Codes: kDelivered at the first attempt, kDeliveredAfterRetry, kAlreadyDelivered
// (the cloud had accepted this message id before), kRefused (the cloud refused
// the event and retrying would not help), kNotDelivered (network failures or
// server errors after the retries, a full queue, no usable cloud URL).
//
// Immutable value.

#include <string>

namespace tolmocomm {

class TolmoEventResult {
  public:
    enum : int {
        kNotDelivered = 0,
        kDelivered = 1,
        kDeliveredAfterRetry = 2,
        kAlreadyDelivered = 3,
        kRefused = 4,
    };

    explicit TolmoEventResult(int resultCode, std::string messageId = "")
        : resultCode_(resultCode), messageId_(std::move(messageId)) {}

    int getResultCode() const { return resultCode_; }
    const std::string& getMessageId() const { return messageId_; }

  private:
    int resultCode_;
    std::string messageId_;
};

}  // namespace tolmocomm
