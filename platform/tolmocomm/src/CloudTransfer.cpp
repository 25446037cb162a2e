#include "CloudTransfer.h"

#include <curl/curl.h>

#include <memory>

namespace tolmocomm {
namespace {

struct Sink {
    std::string* body;
    size_t limit;
};

size_t collect(char* data, size_t size, size_t count, void* userp) {
    Sink* sink = static_cast<Sink*>(userp);
    const size_t bytes = size * count;
    if (sink->body->size() + bytes > sink->limit) {
        return 0;  // libcurl fails the transfer with a write error
    }
    sink->body->append(data, bytes);
    return bytes;
}

// libcurl's option values are C longs whatever their width.
long asLong(std::chrono::milliseconds duration) {
    return static_cast<long>(duration.count());
}

struct EasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct SlistCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

}  // namespace

CloudTransfer::CloudTransfer() : multi_(curl_multi_init()) {}

CloudTransfer::~CloudTransfer() {
    if (multi_ != nullptr) {
        curl_multi_cleanup(multi_);
    }
}

void CloudTransfer::interrupt() {
    interrupted_ = true;
    if (multi_ != nullptr) {
        curl_multi_wakeup(multi_);
    }
}

CloudTransfer::Answer CloudTransfer::perform(const Request& request) {
    Answer answer;
    if (interrupted_) {
        answer.interrupted = true;
        answer.error = "interrupted";
        return answer;
    }
    std::unique_ptr<CURL, EasyCleanup> easy(curl_easy_init());
    if (multi_ == nullptr || !easy) {
        answer.error = "cannot initialise libcurl";
        return answer;
    }
    CURL* curl = easy.get();
    Sink sink{&answer.body, request.maxAnswerBytes};
    char detail[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, asLong(request.connectTimeout));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, asLong(request.totalTimeout));
    curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE,
                     static_cast<curl_off_t>(request.maxAnswerBytes));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    if (!request.caFile.empty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, request.caFile.c_str());
    }
    if (request.post) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    } else {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    }
    std::unique_ptr<curl_slist, SlistCleanup> headers;
    for (const std::string& line : request.headers) {
        curl_slist* appended = curl_slist_append(headers.get(), line.c_str());
        if (appended == nullptr) {
            answer.error = "out of memory";
            return answer;
        }
        static_cast<void>(headers.release());  // the list's head stays the same
        headers.reset(appended);
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());

    if (curl_multi_add_handle(multi_, curl) != CURLM_OK) {
        answer.error = "cannot start the transfer";
        return answer;
    }
    int running = 1;
    CURLcode result = CURLE_OK;
    while (running > 0) {
        if (interrupted_) {
            answer.interrupted = true;
            break;
        }
        if (curl_multi_perform(multi_, &running) != CURLM_OK) {
            answer.error = "transfer failed";
            break;
        }
        if (running > 0 && curl_multi_poll(multi_, nullptr, 0, 1000, nullptr) != CURLM_OK) {
            answer.error = "transfer failed";
            break;
        }
    }
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
        if (message->msg == CURLMSG_DONE && message->easy_handle == curl) {
            result = message->data.result;
        }
    }
    curl_multi_remove_handle(multi_, curl);
    if (answer.interrupted) {
        answer.error = "interrupted";
    } else if (answer.error.empty() && result != CURLE_OK) {
        answer.error = curl_easy_strerror(result);
        if (detail[0] != '\0') {
            answer.error += std::string(" (") + detail + ")";
        }
    } else if (answer.error.empty()) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
        answer.completed = true;
    }
    if (!answer.completed) {
        answer.body.clear();
    }
    return answer;
}

}  // namespace tolmocomm
