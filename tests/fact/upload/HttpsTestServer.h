#pragma once
// A real HTTPS server on 127.0.0.1 and a free port, for tests: it records
// every request it receives and answers POSTs with a scripted status and body
// (after a scripted list of statuses for the next ones), or holds the answers
// back until released (a stalled service).
//
// It also plays the cloud's directive side: GET /v20160207/directives?after=N
// is a long poll answered with the queued directives whose seq is above N,
// or an empty list after the poll hold; a hostile cloud answers every poll
// with a fixed raw answer instead.
//
// Thread-safe: requests arrive on the server's threads while a test reads.

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vemo {
namespace test {

struct RecordedRequest {
    std::string method;
    std::string path;
    std::string query;  // "after=N" for polls
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
    // Releases held answers and polls, stops and joins the server.
    ~HttpsTestServer();
    HttpsTestServer(const HttpsTestServer&) = delete;
    HttpsTestServer& operator=(const HttpsTestServer&) = delete;

    int port() const { return port_; }
    // "https://127.0.0.1:<port>".
    std::string baseUrl() const;

    // POSTs: the next ones get `next` in turn, then `status` and `body`.
    void respondWith(int status, const std::string& body, std::vector<int> next = {});
    // Answers are held back until release() or destruction.
    void holdAnswers();
    void release();

    // Queues a directive for every poll that follows; returns its seq.
    uint64_t queueDirective(const std::string& nameSpace, const std::string& name,
                            const std::string& payload);
    // Every poll is answered at once with this status, body and (for a
    // redirect) Location; status 0 goes back to the long poll.
    void answerPollsRaw(int status, const std::string& body, const std::string& location = "");
    void setPollHold(std::chrono::milliseconds hold);

    std::vector<RecordedRequest> requests() const;
    std::vector<RecordedRequest> requestsTo(const std::string& path) const;
    // Waits until at least `count` requests reached `path`.
    bool waitForRequests(const std::string& path, size_t count,
                         std::chrono::milliseconds bound) const;

  private:
    void handle(const httplib::Request& request, httplib::Response& response);
    void poll(const httplib::Request& request, httplib::Response& response);
    void record(const httplib::Request& request);

    httplib::SSLServer server_;
    int port_ = -1;
    std::thread thread_;
    mutable std::mutex lock_;  // guards everything below
    mutable std::condition_variable changed_;
    std::vector<RecordedRequest> requests_;
    int status_ = 200;
    std::string body_ = "{}";
    std::deque<int> next_;
    bool hold_ = false;
    bool stopping_ = false;
    std::vector<std::pair<uint64_t, std::string>> directives_;  // seq, entry JSON
    int rawPollStatus_ = 0;
    std::string rawPollBody_;
    std::string rawPollLocation_;
    std::chrono::milliseconds pollHold_{300};
};

}  // namespace test
}  // namespace vemo
