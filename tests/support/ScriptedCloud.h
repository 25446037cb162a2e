#pragma once
// A scripted cloud for tests: a real HTTPS server on 127.0.0.1 that records
// every request and answers the device's three kinds of calls:
// - POSTs (events, uploads) with a default status, after a scripted list of
//   statuses for the next ones, or held back until released;
// - long polls of /v20160207/directives?after=N with the queued directives
//   whose seq is above N, or an empty list after pollHold;
// - or, for a hostile cloud, every poll with a fixed raw answer.
//
// Thread-safe: requests arrive on the server's threads while a test reads.

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vemo {
namespace test {

struct CloudRequest {
    std::string method;
    std::string path;
    std::string query;  // "after=N" for polls
    std::string body;
    std::string token;  // the x-qzt-access-token header
};

class ScriptedCloud {
  public:
    ScriptedCloud(const std::string& certFile, const std::string& keyFile);
    // Releases held answers and polls, stops and joins the server.
    ~ScriptedCloud();
    ScriptedCloud(const ScriptedCloud&) = delete;
    ScriptedCloud& operator=(const ScriptedCloud&) = delete;

    std::string baseUrl() const;

    // POSTs: the next ones get these statuses in turn, then `status`.
    void answerPosts(int status, std::vector<int> next = {});
    void holdPosts(bool hold);

    // Queues a directive for every poll that follows; returns its seq.
    uint64_t queueDirective(const std::string& nameSpace, const std::string& name,
                            const std::string& payload);
    // Every poll is answered at once with this status, body and (for a
    // redirect) Location; status 0 goes back to the normal long poll.
    void answerPollsRaw(int status, const std::string& body, const std::string& location = "");
    void setPollHold(std::chrono::milliseconds hold);

    std::vector<CloudRequest> requests() const;
    std::vector<CloudRequest> requestsTo(const std::string& path) const;
    // Waits until at least `count` requests reached `path`.
    bool waitForRequests(const std::string& path, size_t count,
                         std::chrono::milliseconds bound) const;

  private:
    void record(const httplib::Request& request);
    void onPost(const httplib::Request& request, httplib::Response& response);
    void onPoll(const httplib::Request& request, httplib::Response& response);

    httplib::SSLServer server_;
    int port_ = -1;
    std::thread thread_;
    mutable std::mutex lock_;  // guards everything below
    mutable std::condition_variable changed_;
    std::vector<CloudRequest> requests_;
    int postStatus_ = 200;
    std::deque<int> nextPostStatuses_;
    bool holdPosts_ = false;
    std::vector<std::pair<uint64_t, std::string>> directives_;  // seq, entry JSON
    uint64_t lastSeq_ = 0;
    int rawPollStatus_ = 0;
    std::string rawPollBody_;
    std::string rawPollLocation_;
    std::chrono::milliseconds pollHold_{300};
    bool stopping_ = false;
};

}  // namespace test
}  // namespace vemo
