#pragma once
// Hand-written fakes at the ingestion client's seams: an HTTP client that
// records every request and answers as scripted (a status, a transport
// failure, or an answer held back until released), and an authenticator
// with a fixed token or failure. Both are thread-safe.

#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "fact/upload/IHttpClient.h"
#include "fact/upload/IUploadApiAuthenticator.h"

namespace vemo {
namespace test {

class FakeHttpClient : public fact::IHttpClient {
  public:
    struct Call {
        std::string url;
        std::unordered_map<std::string, std::string> headers;
        std::string body;
    };

    std::future<fact::Response> sendRequest(
        const std::string& url, const std::unordered_map<std::string, std::string>& headers,
        const std::string& body) override {
        std::lock_guard<std::mutex> guard(lock_);
        calls_.push_back({url, headers, body});
        const fact::Response answer = answer_;
        const std::string failure = failure_;
        // Deferred like the real client: the answer is made on the waiting thread.
        return std::async(std::launch::deferred, [this, answer, failure] {
            std::unique_lock<std::mutex> held(lock_);
            released_.wait(held, [this] { return !hold_; });
            if (!failure.empty()) {
                throw std::runtime_error(failure);
            }
            return answer;
        });
    }

    void answer(int32_t status, const std::string& body) {
        std::lock_guard<std::mutex> guard(lock_);
        answer_.statusCode = status;
        answer_.body = body;
        failure_.clear();
    }
    void failWith(const std::string& text) {
        std::lock_guard<std::mutex> guard(lock_);
        failure_ = text;
    }
    void hold() {
        std::lock_guard<std::mutex> guard(lock_);
        hold_ = true;
    }
    void release() {
        std::lock_guard<std::mutex> guard(lock_);
        hold_ = false;
        released_.notify_all();
    }
    std::vector<Call> calls() const {
        std::lock_guard<std::mutex> guard(lock_);
        return calls_;
    }

  private:
    mutable std::mutex lock_;  // guards everything below
    std::condition_variable released_;
    std::vector<Call> calls_;
    fact::Response answer_{"", 200};
    std::string failure_;
    bool hold_ = false;
};

class FakeAuthenticator : public fact::IUploadApiAuthenticator {
  public:
    explicit FakeAuthenticator(std::string token, bool fails = false)
        : token_(std::move(token)), fails_(fails) {}

    std::string getAuthToken() override {
        std::lock_guard<std::mutex> guard(lock_);
        ++requests_;
        if (fails_) {
            throw std::runtime_error(token_);
        }
        return token_;
    }
    int requests() const {
        std::lock_guard<std::mutex> guard(lock_);
        return requests_;
    }

  private:
    const std::string token_;  // the failure text when fails_
    const bool fails_;
    mutable std::mutex lock_;  // guards requests_
    int requests_ = 0;
};

}  // namespace test
}  // namespace vemo
