#pragma once
// GET over HTTPS with libcurl, verifying the peer against one CA file (the
// demo's own CA), for the cloud's health, results and report. Bounded: 5 s
// to connect, 30 s in all.
//
// Stateless; any thread (libcurl's global state is set up once per process).

#include <string>

namespace vemo {
namespace fleet {

class HttpsFetcher {
  public:
    struct Response {
        long status = 0;  // HTTP status; 0 when no answer arrived
        std::string body;
        std::string error;  // libcurl's text when status is 0
    };

    // bearerToken, when not empty, goes in "Authorization: Bearer <token>".
    static Response get(const std::string& url, const std::string& caFile,
                        const std::string& bearerToken);
};

}  // namespace fleet
}  // namespace vemo
