#include "fact/upload/CurlHttpClient.h"

#include <curl/curl.h>
#include <sys/system_properties.h>

#include <memory>
#include <stdexcept>

#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"

namespace fact {
namespace {

const vemo::VemoLogger logger("CurlHttpClient");

struct EasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct SlistCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;
using HeaderList = std::unique_ptr<curl_slist, SlistCleanup>;

// libcurl's option values are C longs whatever their width; the casts keep the
// variadic calls right on 32-bit targets too.
long asLong(int64_t value) {
    return static_cast<long>(value);
}

void applyLimits(CURL* handle, const CurlHttpClient::Limits& limits) {
    // Timeouts must not be delivered by signals in a multi-threaded process.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    if (limits.connectTimeout.count() > 0) {
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, asLong(limits.connectTimeout.count()));
    }
    if (limits.lowSpeedBytesPerSecond > 0 && limits.lowSpeedTime.count() > 0) {
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, asLong(limits.lowSpeedBytesPerSecond));
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, asLong(limits.lowSpeedTime.count()));
    }
    if (limits.totalTimeout.count() > 0) {
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, asLong(limits.totalTimeout.count()));
    }
}

Response transfer(const std::string& url,
                  const std::unordered_map<std::string, std::string>& headers,
                  const std::string& body, const CurlHttpClient::Limits& limits) {
    // Declared before the handle: libcurl may use them until it is cleaned up.
    Response response;
    char detail[CURL_ERROR_SIZE] = {};
    EasyHandle handle(curl_easy_init());
    if (!handle) {
        FactHeartbeatMetric::GetInstance().addCount("DataIngestionClientCurlEasyInitErrorCount");
        logger.e("%s:%s", "operator()", "Failed to initialize curl");
        throw std::runtime_error("Failed to initialize curl");
    }
    CURL* curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &CurlHttpClient::WriteCallback);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
    // The body is sent as it is, even if it holds a NUL byte.
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    applyLimits(curl, limits);

    char caFile[PROP_VALUE_MAX] = {};
    if (__system_property_get(CurlHttpClient::kCaFileProperty, caFile) > 0) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, caFile);
    }
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);

    HeaderList headerList;
    for (const auto& entry : headers) {
        const std::string line = entry.first + ": " + entry.second;
        curl_slist* appended = curl_slist_append(headerList.get(), line.c_str());
        if (appended == nullptr) {
            const std::string message =
                std::string("curl request failed: ") + curl_easy_strerror(CURLE_OUT_OF_MEMORY);
            logger.e("%s:%s", "operator()", message.c_str());
            throw std::runtime_error(message);
        }
        // The list's head stays the same once it exists.
        static_cast<void>(headerList.release());
        headerList.reset(appended);
    }
    if (headerList) {
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headerList.get());
    }

    const CURLcode result = curl_easy_perform(curl);
    headerList.reset();
    if (result != CURLE_OK) {
        const std::string message =
            std::string("curl request failed: ") + curl_easy_strerror(result);
        logger.e("%s:%s", "operator()", message.c_str());
        if (detail[0] != '\0') {
            logger.d("%s:%s", "operator()", detail);
        }
        throw std::runtime_error(message);
    }
    long code = -1;
    if (curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code) == CURLE_OK) {
        response.statusCode = static_cast<int32_t>(code);
    }
    handle.reset();
    logger.d("%s:Response code: %d", "operator()", response.statusCode);
    logger.d("%s:Response body: %s", "operator()", response.body.c_str());
    return response;
}

}  // namespace

constexpr const char CurlHttpClient::kCaFileProperty[];

CurlHttpClient::CurlGlobalInit::CurlGlobalInit() {
    const CURLcode result = curl_global_init(CURL_GLOBAL_ALL);
    if (result != CURLE_OK) {
        FactHeartbeatMetric::GetInstance().addCount("DataIngestionClientCurlGlobalInitErrorCount");
        logger.e("%s:Curl global init failed, error code %s", "CurlGlobalInit",
                 curl_easy_strerror(result));
        return;
    }
    logger.d("%s:Curl global init success", "CurlGlobalInit");
}

CurlHttpClient::CurlGlobalInit::~CurlGlobalInit() {
    curl_global_cleanup();
}

CurlHttpClient::CurlHttpClient() : CurlHttpClient(Limits()) {}

CurlHttpClient::CurlHttpClient(const Limits& limits) : limits_(limits) {
    // Function-local so that it is made on first use, after liblog and the
    // heartbeat are usable, and outlives every client made after it.
    static CurlGlobalInit curlGlobalInit;
}

std::future<Response> CurlHttpClient::sendRequest(
    const std::string& url, const std::unordered_map<std::string, std::string>& headers,
    const std::string& body) {
    logger.d("%s:Sending POST request to %s", "sendRequest", url.c_str());
    return std::async(std::launch::deferred, [body, url, headers, limits = limits_] {
        return transfer(url, headers, body, limits);
    });
}

size_t CurlHttpClient::WriteCallback(void* data, size_t size, size_t count, void* userp) {
    const size_t bytes = size * count;
    static_cast<std::string*>(userp)->append(static_cast<const char*>(data), bytes);
    return bytes;
}

}  // namespace fact
