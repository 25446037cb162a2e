#pragma once
// A device for the cloud's tests, in process: its own handle of the core
// stand-in makes the participation request and masks on the directive, and
// the upload client's own document writer makes the upload, sent over real
// HTTPS to a cloud on loopback.
//
// One thread at a time per device; devices are independent. Movable.

#include <httplib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vemo {
namespace test {

// An HTTPS client that trusts only the test CA.
struct CloudClient {
    CloudClient(int port, const std::string& caFile);
    httplib::Result post(const std::string& path, const std::string& token,
                         const std::string& body);
    httplib::Result get(const std::string& path, const std::string& token);
    httplib::SSLClient client;
};

class CloudTestDevice {
  public:
    // The metadata text of the tests' campaign.
    static const char* const kMetadata;

    CloudTestDevice(std::string token, std::string applicationId);
    ~CloudTestDevice();
    CloudTestDevice(CloudTestDevice&&) noexcept;

    // Posts a participation request for `values` (the checksum is appended);
    // the HTTP status.
    int requestParticipation(CloudClient& cloud, const std::vector<int32_t>& values);
    // Waits up to a minute for the mask directive (long polls, asked again
    // after an empty answer or a 503); false when none came.
    bool receiveDirective(CloudClient& cloud);
    // The upload document of the masked vector, `tamper` added to element 0
    // after masking.
    std::string uploadDocument(int32_t tamper = 0);
    // Posts uploadDocument(tamper); the HTTP status.
    int upload(CloudClient& cloud, int32_t tamper = 0);

    const std::string& cohortId() const;
    const std::string& token() const { return token_; }

  private:
    struct Core;

    std::string token_;
    std::string applicationId_;
    std::string directive_;
    std::unique_ptr<Core> core_;
};

// A unique message id.
std::string newMessageId();
// {"event":{"header":{...},"payload":"<payload>"}}.
std::string eventBody(const std::string& eventNamespace, const std::string& name,
                      const std::string& messageId, const std::string& payload);

}  // namespace test
}  // namespace vemo
