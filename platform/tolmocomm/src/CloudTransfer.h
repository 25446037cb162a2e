#pragma once
// One HTTPS exchange at a time with the cloud, over libcurl's multi interface
// so that another thread can end a transfer in flight at once (interrupt()).
//
// Every transfer: https only, peer and host verified, redirects not followed,
// no signals, bounded in connect time, total time and answer size.
//
// Thread-safety: perform() is called by one thread at a time (the owner's
// worker); interrupt() may be called from any thread.

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

typedef void CURLM;

namespace tolmocomm {

class CloudTransfer {
  public:
    struct Request {
        bool post = false;  // POST `body`, else GET
        std::string url;
        std::vector<std::string> headers;  // "Name: value" lines
        std::string body;
        std::string caFile;  // empty: libcurl's default CA store
        std::chrono::milliseconds connectTimeout{0};
        std::chrono::milliseconds totalTimeout{0};
        size_t maxAnswerBytes = 0;
    };

    struct Answer {
        bool completed = false;    // an HTTP status arrived
        bool interrupted = false;  // interrupt() ended it
        long status = 0;
        std::string body;
        std::string error;  // why it did not complete
    };

    CloudTransfer();
    ~CloudTransfer();
    CloudTransfer(const CloudTransfer&) = delete;
    CloudTransfer& operator=(const CloudTransfer&) = delete;

    Answer perform(const Request& request);

    // Ends the transfer in flight and makes every later perform() return at
    // once, interrupted.
    void interrupt();

  private:
    CURLM* multi_;
    std::atomic<bool> interrupted_{false};
};

}  // namespace tolmocomm
