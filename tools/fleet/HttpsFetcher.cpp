#include "HttpsFetcher.h"

#include <curl/curl.h>

#include <memory>

namespace vemo {
namespace fleet {

namespace {

size_t append(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

}  // namespace

HttpsFetcher::Response HttpsFetcher::get(const std::string& url, const std::string& caFile,
                                         const std::string& bearerToken) {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    Response response;
    if (initialised != CURLE_OK) {
        response.error = curl_easy_strerror(initialised);
        return response;
    }
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl) {
        response.error = "cannot create a libcurl handle";
        return response;
    }
    struct curl_slist* headers = nullptr;
    const std::string authorization = "Authorization: Bearer " + bearerToken;
    if (!bearerToken.empty()) {
        headers = curl_slist_append(headers, authorization.c_str());
    }
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headerList(headers,
                                                                           &curl_slist_free_all);
    char error[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, 5000L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, 30000L);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, error);
    const CURLcode result = curl_easy_perform(curl.get());
    if (result != CURLE_OK) {
        response.error = error[0] != '\0' ? error : curl_easy_strerror(result);
        response.body.clear();
        return response;
    }
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response.status);
    return response;
}

}  // namespace fleet
}  // namespace vemo
