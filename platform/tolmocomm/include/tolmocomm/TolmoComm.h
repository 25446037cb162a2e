#pragma once
// Host stand-in for the cloud-communication library: talks HTTPS (libcurl,
// peer verification always on) to the cloud whose base URL is the system
// property kUrlProperty, trusting the PEM bundle named by kCaFileProperty
// when it is set (both re-read on every request). Every request carries the
// device's access token from the host accessor in the header kTokenHeader.
//
// Two threads of its own:
// - the event thread posts queued events in order to <base URL><event path>,
//   retrying network failures and server errors (5xx) with exponential
//   backoff and jitter, and reports each event's TolmoEventResult;
// - the directive thread, started by the first registerClient(), long-polls
//   <base URL>/v20160207/directives?after=<highest seq seen> and hands each
//   new directive, in order, to the handler subscribed to its namespace and
//   name (others are logged and skipped). On failure it waits with backoff;
//   it never spins.
// A base URL that is not https is refused with one error line and nothing is
// sent. Answers are bounded in size and every transfer in time, and a
// redirect is never followed. shutdown() (or the destructor) ends a transfer
// in flight at once.
//
// Thread-safety: all public operations may be called from any thread. See
// ITolmoComm for the handler rules.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "tolmocomm/ITolmoComm.h"

namespace tolmocomm {

class CloudTransfer;

class TolmoComm : public ITolmoComm {
  public:
    static constexpr const char kUrlProperty[] = "persist.vemo.cloud.url";
    static constexpr const char kCaFileProperty[] = "persist.vemo.cloud.cafile";
    static constexpr const char kTokenHeader[] = "x-qzt-access-token";
    static constexpr const char kDirectivesPath[] = "/v20160207/directives";

    struct Options {
        // Events waiting to be posted; one more is answered kNotDelivered.
        size_t queueCapacity = 64;
        // Attempts per event, the first included.
        int maxAttempts = 5;
        // Backoff before retry n is retryBase * 2^(n-1), at most retryMax,
        // jittered down to half of that at random. The directive thread
        // backs off the same way after failed polls.
        std::chrono::milliseconds retryBase{500};
        std::chrono::milliseconds retryMax{std::chrono::seconds(30)};
        // TCP connect plus TLS handshake.
        std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};
        // One event post, connect included.
        std::chrono::milliseconds eventTimeout{std::chrono::seconds(30)};
        // One long poll; the cloud answers within about 20 s.
        std::chrono::milliseconds pollTimeout{std::chrono::seconds(30)};
        // Pause after a poll that brought nothing new, so that a cloud that
        // answers at once with empty lists is not asked in a tight loop.
        std::chrono::milliseconds emptyPollPause{std::chrono::seconds(1)};
        // Largest answer body read; a longer one fails the transfer.
        size_t maxAnswerBytes = 1 << 20;
    };

    // The process's instance, made on first use with the default options.
    static ITolmoComm& getImpl();

    TolmoComm();
    explicit TolmoComm(const Options& options);
    ~TolmoComm() override;
    TolmoComm(const TolmoComm&) = delete;
    TolmoComm& operator=(const TolmoComm&) = delete;

    void registerClient(const TolmoEvent& capabilities, std::shared_ptr<ClientContext> context,
                        const std::vector<DirectiveConfig>& directives,
                        EventResultCallback onCapabilitiesResult,
                        DirectiveCallback onDirective) override;
    void sendEvent(const TolmoEvent& event, EventResultCallback onResult) override;
    void shutdown() override;

  private:
    struct Pending {
        TolmoEvent event;
        std::string messageId;
        EventResultCallback onResult;
    };

    void eventLoop();
    void pollLoop();
    // Posts one event with its retries; its result code, or -1 when the
    // library is stopping.
    int deliver(const Pending& pending);
    // One long poll and the hand-over of what it brought; false on failure.
    bool pollOnce(uint64_t& after);
    void dispatch(const TolmoDirective& directive);
    // Sleeps unless stopping; false when stopping.
    bool pause(std::chrono::milliseconds duration);
    std::chrono::milliseconds backoff(int failures);
    // The base URL without trailing slashes; false (logged once per value)
    // when it is absent or not https.
    bool baseUrl(std::string& url);
    bool accessToken(std::string& token);

    const Options options_;
    std::unique_ptr<CloudTransfer> eventTransfer_;
    std::unique_ptr<CloudTransfer> pollTransfer_;

    std::mutex mutex_;  // guards every member below up to the threads
    std::condition_variable changed_;
    std::deque<Pending> queue_;
    std::map<std::pair<std::string, std::string>, DirectiveCallback> handlers_;
    bool registered_ = false;
    bool stopping_ = false;
    // The last URL complained about, so that one bad value is logged once.
    std::optional<std::string> refusedUrl_;

    std::mutex joinMutex_;  // serialises shutdown()'s joins
    std::thread eventThread_;
    std::thread pollThread_;
};

}  // namespace tolmocomm
