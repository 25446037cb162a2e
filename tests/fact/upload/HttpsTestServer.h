#pragma once
// A real HTTPS server on 127.0.0.1 and a free port, for tests: it records
// every request it receives and answers with a scripted status and body, or
// holds the answer back until released (a stalled service).
//
// Thread-safe: requests arrive on the server's threads while a test reads.

#include <httplib.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vemo {
namespace test {

struct RecordedRequest {
    std::string method;
    std::string path;
    std::string body;
    httplib::Headers headers;

    // The value of a header field (case-insensitive name), or "" when absent.
    std::string header(const std::string& name) const;
};

class HttpsTestServer {
  public:
    // Starts serving with the given PEM certificate and key; throws
    // std::runtime_error when it cannot.
    HttpsTestServer(const std::string& certFile, const std::string& keyFile);
    // Releases held answers, stops and joins the server.
    ~HttpsTestServer();
    HttpsTestServer(const HttpsTestServer&) = delete;
    HttpsTestServer& operator=(const HttpsTestServer&) = delete;

    int port() const { return port_; }
    // "https://127.0.0.1:<port>".
    std::string baseUrl() const;

    void respondWith(int status, const std::string& body);
    // Answers are held back until release() or destruction.
    void holdAnswers();
    void release();

    std::vector<RecordedRequest> requests() const;

  private:
    void handle(const httplib::Request& request, httplib::Response& response);

    httplib::SSLServer server_;
    int port_ = -1;
    std::thread thread_;
    mutable std::mutex lock_;  // guards everything below
    std::condition_variable released_;
    std::vector<RecordedRequest> requests_;
    int status_ = 200;
    std::string body_ = "{}";
    bool hold_ = false;
};

}  // namespace test
}  // namespace vemo
