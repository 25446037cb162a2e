#pragma once
// Throw-away certificates for loopback HTTPS tests, made with the openssl
// command-line tool under a directory the test owns: a trusted CA with a
// server certificate for localhost and 127.0.0.1, and an unrelated CA with a
// server certificate of the same names that the trusted CA did not sign.

#include <string>

namespace vemo {
namespace test {

class TestPki {
  public:
    // Creates the directory's files; throws std::runtime_error with the tool's
    // output when a step fails.
    explicit TestPki(const std::string& directory);

    const std::string& caFile() const { return caFile_; }
    const std::string& serverCert() const { return serverCert_; }
    const std::string& serverKey() const { return serverKey_; }
    const std::string& foreignServerCert() const { return foreignServerCert_; }
    const std::string& foreignServerKey() const { return foreignServerKey_; }

  private:
    std::string caFile_;
    std::string serverCert_;
    std::string serverKey_;
    std::string foreignServerCert_;
    std::string foreignServerKey_;
};

}  // namespace test
}  // namespace vemo
