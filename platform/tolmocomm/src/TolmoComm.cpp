#include "tolmocomm/TolmoComm.h"

#include <android/log.h>
#include <curl/curl.h>
#include <pellux/managers/BasicUtilsManager.h>
#include <strings.h>
#include <sys/system_properties.h>

#include <algorithm>
#include <random>

#include "CloudTransfer.h"
#include "CloudWire.h"

namespace tolmocomm {
namespace {

const char kTag[] = "TolmoComm";

#define TLOG(priority, ...) __android_log_print(priority, kTag, __VA_ARGS__)

std::string property(const char* name) {
    char value[PROP_VALUE_MAX] = {};
    return __system_property_get(name, value) > 0 ? value : "";
}

// libcurl's global state, set up once before the first instance and torn down
// after the last one (function-local statics die in reverse order).
struct CurlGlobal {
    CurlGlobal() {
        if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) {
            TLOG(ANDROID_LOG_ERROR, "%s:curl_global_init failed", "CurlGlobal");
        }
    }
    ~CurlGlobal() { curl_global_cleanup(); }
};

// A request to `url` with the token, the CA file and the bounds set.
CloudTransfer::Request newRequest(const TolmoComm::Options& options, const std::string& url,
                                  const std::string& token,
                                  std::chrono::milliseconds totalTimeout) {
    CloudTransfer::Request request;
    request.url = url;
    request.headers = {std::string(TolmoComm::kTokenHeader) + ": " + token};
    request.caFile = property(TolmoComm::kCaFileProperty);
    request.connectTimeout = options.connectTimeout;
    request.totalTimeout = totalTimeout;
    request.maxAnswerBytes = options.maxAnswerBytes;
    return request;
}

}  // namespace

constexpr const char TolmoComm::kUrlProperty[];
constexpr const char TolmoComm::kCaFileProperty[];
constexpr const char TolmoComm::kTokenHeader[];
constexpr const char TolmoComm::kDirectivesPath[];

ITolmoComm& TolmoComm::getImpl() {
    static TolmoComm instance;
    return instance;
}

TolmoComm::TolmoComm() : TolmoComm(Options()) {}

TolmoComm::TolmoComm(const Options& options) : options_(options) {
    static CurlGlobal curlGlobal;
    eventTransfer_ = std::make_unique<CloudTransfer>();
    pollTransfer_ = std::make_unique<CloudTransfer>();
    eventThread_ = std::thread(&TolmoComm::eventLoop, this);
    pollThread_ = std::thread(&TolmoComm::pollLoop, this);
}

TolmoComm::~TolmoComm() {
    shutdown();
}

void TolmoComm::shutdown() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        queue_.clear();
        handlers_.clear();
        changed_.notify_all();
    }
    eventTransfer_->interrupt();
    pollTransfer_->interrupt();
    std::lock_guard<std::mutex> joins(joinMutex_);
    if (eventThread_.joinable()) {
        eventThread_.join();
    }
    if (pollThread_.joinable()) {
        pollThread_.join();
    }
}

void TolmoComm::registerClient(const TolmoEvent& capabilities, std::shared_ptr<ClientContext>,
                               const std::vector<DirectiveConfig>& directives,
                               EventResultCallback onCapabilitiesResult,
                               DirectiveCallback onDirective) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const DirectiveConfig& config : directives) {
            handlers_[{config.getNamespace(), config.getName()}] = onDirective;
        }
        registered_ = true;
        changed_.notify_all();
    }
    sendEvent(capabilities, std::move(onCapabilitiesResult));
}

void TolmoComm::sendEvent(const TolmoEvent& event, EventResultCallback onResult) {
    const std::string messageId = wire::newMessageId();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!stopping_ && queue_.size() < options_.queueCapacity) {
            queue_.push_back({event, messageId, std::move(onResult)});
            changed_.notify_all();
            return;
        }
        if (!stopping_) {
            TLOG(ANDROID_LOG_ERROR, "%s:Event queue full (%zu), %s/%s not delivered", "sendEvent",
                 queue_.size(), event.getNamespace().c_str(), event.getName().c_str());
        }
    }
    if (onResult) {
        onResult(TolmoEventResult(TolmoEventResult::kNotDelivered, messageId));
    }
}

void TolmoComm::eventLoop() {
    for (;;) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) {
            return;
        }
        Pending pending = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        const int result = deliver(pending);
        if (result < 0) {
            return;
        }
        if (pending.onResult) {
            pending.onResult(TolmoEventResult(result, pending.messageId));
        }
    }
}

int TolmoComm::deliver(const Pending& pending) {
    const TolmoEvent& event = pending.event;
    const std::string document = wire::eventDocument(event, pending.messageId);
    for (int attempt = 1;; ++attempt) {
        if (attempt > 1 && !pause(backoff(attempt - 1))) {
            return -1;
        }
        std::string url;
        if (!baseUrl(url)) {
            return TolmoEventResult::kNotDelivered;
        }
        std::string token;
        std::string failure = "no access token";
        if (accessToken(token)) {
            CloudTransfer::Request request =
                newRequest(options_, url + event.getEventPath(), token, options_.eventTimeout);
            request.post = true;
            request.headers.push_back("Content-Type: application/json");
            request.body = document;
            const CloudTransfer::Answer answer = eventTransfer_->perform(request);
            if (answer.interrupted) {
                return -1;
            }
            const long status = answer.status;
            if (answer.completed && status >= 200 && status < 300) {
                return attempt == 1 ? TolmoEventResult::kDelivered
                                    : TolmoEventResult::kDeliveredAfterRetry;
            }
            if (answer.completed && status == 409) {
                return TolmoEventResult::kAlreadyDelivered;
            }
            if (answer.completed && status >= 400 && status < 500) {
                TLOG(ANDROID_LOG_ERROR, "%s:Event %s/%s %s refused with HTTP %ld", "deliver",
                     event.getNamespace().c_str(), event.getName().c_str(),
                     pending.messageId.c_str(), status);
                return TolmoEventResult::kRefused;
            }
            if (answer.completed && status < 500) {
                // A redirect or an interim status: not followed, and asking
                // again would get the same.
                TLOG(ANDROID_LOG_ERROR, "%s:Event %s/%s %s not delivered: unexpected HTTP %ld",
                     "deliver", event.getNamespace().c_str(), event.getName().c_str(),
                     pending.messageId.c_str(), status);
                return TolmoEventResult::kNotDelivered;
            }
            failure = answer.completed ? "HTTP " + std::to_string(status) : answer.error;
        }
        if (attempt >= options_.maxAttempts) {
            TLOG(ANDROID_LOG_ERROR, "%s:Event %s/%s %s not delivered after %d attempts: %s",
                 "deliver", event.getNamespace().c_str(), event.getName().c_str(),
                 pending.messageId.c_str(), attempt, failure.c_str());
            return TolmoEventResult::kNotDelivered;
        }
        TLOG(ANDROID_LOG_WARN, "%s:Event %s/%s attempt %d failed: %s", "deliver",
             event.getNamespace().c_str(), event.getName().c_str(), attempt, failure.c_str());
    }
}

void TolmoComm::pollLoop() {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return stopping_ || registered_; });
        if (stopping_) {
            return;
        }
    }
    uint64_t after = 0;
    int failures = 0;
    for (;;) {
        const bool ok = pollOnce(after);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) {
                return;
            }
        }
        failures = ok ? 0 : failures + 1;
        if (failures > 0 && !pause(backoff(failures))) {
            return;
        }
    }
}

bool TolmoComm::pollOnce(uint64_t& after) {
    std::string url;
    std::string token;
    if (!baseUrl(url)) {
        return false;
    }
    if (!accessToken(token)) {
        TLOG(ANDROID_LOG_WARN, "%s:No access token, directives not polled", "pollOnce");
        return false;
    }
    const CloudTransfer::Request request =
        newRequest(options_, url + kDirectivesPath + "?after=" + std::to_string(after), token,
                   options_.pollTimeout);
    const CloudTransfer::Answer answer = pollTransfer_->perform(request);
    if (answer.interrupted) {
        return true;
    }
    if (!answer.completed || answer.status != 200) {
        TLOG(ANDROID_LOG_WARN, "%s:Directive poll failed: %s", "pollOnce",
             answer.completed ? ("HTTP " + std::to_string(answer.status)).c_str()
                              : answer.error.c_str());
        return false;
    }
    std::vector<wire::SequencedDirective> directives;
    std::vector<std::string> skipped;
    std::string error;
    uint64_t highest = after;
    if (!wire::parseDirectives(answer.body, directives, skipped, highest, error)) {
        TLOG(ANDROID_LOG_ERROR, "%s:Directive list unreadable: %s", "pollOnce", error.c_str());
        return false;
    }
    for (const std::string& why : skipped) {
        TLOG(ANDROID_LOG_ERROR, "%s:Malformed directive skipped: %s", "pollOnce", why.c_str());
    }
    bool fresh = false;
    for (const wire::SequencedDirective& entry : directives) {
        // A cloud that sends again what was acknowledged is not obeyed twice.
        if (entry.seq > after) {
            fresh = true;
            dispatch(entry.directive);
        }
    }
    after = highest;
    if (!fresh) {
        pause(options_.emptyPollPause);
    }
    return true;
}

void TolmoComm::dispatch(const TolmoDirective& directive) {
    DirectiveCallback handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto it = handlers_.find({directive.getNamespace(), directive.getName()});
        if (stopping_) {
            return;
        }
        if (it != handlers_.end()) {
            handler = it->second;
        }
    }
    if (!handler) {
        TLOG(ANDROID_LOG_WARN, "%s:No handler for directive %s/%s, skipped", "dispatch",
             directive.getNamespace().c_str(), directive.getName().c_str());
        return;
    }
    handler(directive);
}

bool TolmoComm::pause(std::chrono::milliseconds duration) {
    std::unique_lock<std::mutex> lock(mutex_);
    return !changed_.wait_for(lock, duration, [this] { return stopping_; });
}

std::chrono::milliseconds TolmoComm::backoff(int failures) {
    int64_t delay = options_.retryBase.count();
    for (int i = 1; i < failures && delay < options_.retryMax.count(); ++i) {
        delay *= 2;
    }
    delay = std::min<int64_t>(delay, options_.retryMax.count());
    // Jitter keeps a fleet that lost the cloud at once from returning at once.
    thread_local std::minstd_rand random{std::random_device{}()};
    std::uniform_int_distribution<int64_t> spread(delay / 2, delay);
    return std::chrono::milliseconds(spread(random));
}

bool TolmoComm::baseUrl(std::string& url) {
    url = property(kUrlProperty);
    const bool https = url.size() > 8 && strncasecmp(url.c_str(), "https://", 8) == 0;
    std::lock_guard<std::mutex> lock(mutex_);
    if (https) {
        refusedUrl_.reset();
        while (url.back() == '/') {
            url.pop_back();
        }
        return true;
    }
    if (!refusedUrl_ || *refusedUrl_ != url) {
        refusedUrl_ = url;
        if (url.empty()) {
            TLOG(ANDROID_LOG_ERROR, "%s:%s is not set; nothing is sent to the cloud", "baseUrl",
                 kUrlProperty);
        } else {
            TLOG(ANDROID_LOG_ERROR,
                 "%s:Refusing cloud URL '%s': only https is allowed; nothing sent", "baseUrl",
                 url.c_str());
        }
    }
    return false;
}

bool TolmoComm::accessToken(std::string& token) {
    using com::nimbel::pellux::managers::BasicUtilsManager;
    return BasicUtilsManager::getAccessToken(BasicUtilsManager::getManager(), token) ==
           BasicUtilsManager::OK;
}

}  // namespace tolmocomm
