#pragma once
// The HTTPS front of the cloud: routes device requests (events, directive
// long polls, uploads) to ingestion and the controller, and analyst requests
// (results, report) to the results builder and renderer; /v1/health needs
// no token. Bodies are bounded (uploads 16 MiB, events 1 MiB), slow clients
// time out after a few seconds, and long polls beyond a fixed number wait
// nowhere: they get 503 and retry after their backoff.
//
// Owns the HTTP server; the store, controller, ingestion and catalog are
// borrowed and must outlive it. run() blocks on the calling thread; stop()
// may be called from any thread.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "CampaignCatalog.h"
#include "CloudStore.h"
#include "Ingestion.h"
#include "SessionController.h"

namespace httplib {
class SSLServer;
}

namespace vemo {
namespace cloud {

struct ServerConfig {
    std::string host = "127.0.0.1";
    int port = 8443;  // 0 picks a free port
    std::string certFile;
    std::string keyFile;
    // Empty: the analyst endpoints are open to anyone who can connect.
    std::string analystToken;
    int64_t pollMs = 20000;
    size_t threads = 48;
    size_t maxPolls = 32;
};

class CloudServer {
  public:
    static constexpr size_t kMaxUploadBytes = size_t{16} << 20;
    static constexpr int kListenBacklog = 1024;

    CloudServer(ServerConfig config, CloudStore& store, SessionController& controller,
                Ingestion& ingestion, const CampaignCatalog& catalog);
    ~CloudServer();
    CloudServer(const CloudServer&) = delete;
    CloudServer& operator=(const CloudServer&) = delete;

    // Loads the certificate and binds; false with a reason when either fails.
    bool bind(std::string& error);
    // The bound port.
    int port() const { return port_; }
    // Serves until stop().
    void run();
    void stop();

  private:
    void routes();

    ServerConfig config_;
    CloudStore& store_;
    SessionController& controller_;
    Ingestion& ingestion_;
    const CampaignCatalog& catalog_;
    std::unique_ptr<httplib::SSLServer> server_;
    int port_ = -1;
    std::atomic<size_t> polls_{0};
};

}  // namespace cloud
}  // namespace vemo
