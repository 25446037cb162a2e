#pragma once
// A device for the cloud's tests, in process: the protocol library's own
// request writer, directive reader and masker, and the upload client's own
// document writer, over real HTTPS to a cloud on loopback.
//
// One thread at a time per device; devices are independent. Movable.

#include <httplib.h>

#include <cstdint>
#include <string>
#include <vector>

#include "secagg/KeyPair.h"
#include "secagg/MaskDirective.h"

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
    CloudTestDevice(std::string token, std::string applicationId);

    // Posts a participation request for `values` (the checksum is appended);
    // the HTTP status.
    int requestParticipation(CloudClient& cloud, const std::vector<int32_t>& values);
    // Waits up to a minute for the mask directive (long polls, asked again
    // after an empty answer or a 503); false when none came.
    bool receiveDirective(CloudClient& cloud);
    // The upload document of the vector masked by the directive, `tamper`
    // added to element 0 after masking.
    std::string uploadDocument(int32_t tamper = 0) const;
    // Posts uploadDocument(tamper); the HTTP status.
    int upload(CloudClient& cloud, int32_t tamper = 0) const;

    const std::string& cohortId() const { return directive_.cohortId; }
    const std::string& token() const { return token_; }

  private:
    std::string token_;
    std::string applicationId_;
    secagg::KeyPair keys_;
    std::vector<int32_t> words_;
    secagg::MaskDirective directive_;
};

// {"event":{"header":{...},"payload":"<payload>"}}, as a device writes it.
std::string eventBody(const std::string& eventNamespace, const std::string& name,
                      const std::string& messageId, const std::string& payload);

}  // namespace test
}  // namespace vemo
