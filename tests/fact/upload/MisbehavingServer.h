#pragma once
// A peer on 127.0.0.1 that breaks the HTTPS exchange in one scripted way, to
// show that the client ends every such exchange with an error instead of a
// crash or a hang. Connections are served one at a time on one thread.

#include <openssl/ssl.h>

#include <string>
#include <thread>

namespace vemo {
namespace test {

enum class Misbehaviour {
    kNeverAccept,        // TCP connects (kernel backlog) but nothing answers
    kCloseAtOnce,        // accepts and closes before the TLS handshake
    kPlainGarbage,       // answers the TLS hello with bytes that are not TLS
    kGarbageReply,       // TLS, then a reply that is not HTTP
    kNoReply,            // TLS, reads the request, closes without a reply
    kTruncatedBody,      // TLS, announces 100 body bytes, sends 5, closes
    kStallAfterRequest,  // TLS, reads the request, then stays silent
};

class MisbehavingServer {
  public:
    MisbehavingServer(Misbehaviour behaviour, const std::string& certFile,
                      const std::string& keyFile);
    // Ends any stall, closes the sockets and joins the thread.
    ~MisbehavingServer();
    MisbehavingServer(const MisbehavingServer&) = delete;
    MisbehavingServer& operator=(const MisbehavingServer&) = delete;

    std::string baseUrl() const;

  private:
    void serve();
    void serveOne(int fd);
    // Waits until `fd` is readable; false when the server is stopping.
    bool waitReadable(int fd);

    const Misbehaviour behaviour_;
    SSL_CTX* ctx_ = nullptr;
    int listenFd_ = -1;
    int stopPipe_[2] = {-1, -1};
    int port_ = 0;
    std::thread thread_;
};

}  // namespace test
}  // namespace vemo
