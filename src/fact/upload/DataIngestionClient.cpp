#include "fact/upload/DataIngestionClient.h"

#include <sys/system_properties.h>

#include <cctype>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "fact/FactHeartbeatMetric.h"
#include "fact/upload/CampaignMetadata.h"
#include "fact/upload/VectorEncoding.h"

namespace fact {

struct DataIngestionClient::InFlight {
    mutable std::mutex lock;  // guards running
    std::condition_variable idle;
    size_t running = 0;

    void begin() {
        std::lock_guard<std::mutex> guard(lock);
        ++running;
    }
    void end() {
        std::lock_guard<std::mutex> guard(lock);
        if (--running == 0) {
            idle.notify_all();
        }
    }
};

namespace {

void count(const char* name) {
    FactHeartbeatMetric::GetInstance().addCount(name);
}

template <class T>
std::vector<int32_t> asInt32(const std::vector<T>& data) {
    static_assert(std::is_integral<T>::value && sizeof(T) == 4,
                  "elements are uploaded as 4-byte integers");
    return std::vector<int32_t>(data.begin(), data.end());
}

}  // namespace

constexpr const char DataIngestionClient::kUrlProperty[];
constexpr const char DataIngestionClient::kDefaultBaseUrl[];
constexpr const char DataIngestionClient::kUploadPath[];

DataIngestionClient::DataIngestionClient(std::shared_ptr<IUploadApiAuthenticator> authenticator,
                                         std::shared_ptr<IHttpClient> httpClient)
    : authenticator_(std::move(authenticator)),
      httpClient_(std::move(httpClient)),
      logger_("DataIngestionClient"),
      inFlight_(std::make_shared<InFlight>()) {}

bool DataIngestionClient::isHttps(const std::string& url) {
    static const char kScheme[] = "https://";
    if (url.size() < sizeof kScheme - 1) {
        return false;
    }
    for (size_t i = 0; i < sizeof kScheme - 1; ++i) {
        if (std::tolower(static_cast<unsigned char>(url[i])) != kScheme[i]) {
            return false;
        }
    }
    return true;
}

std::string DataIngestionClient::endpointUrl() {
    char value[PROP_VALUE_MAX] = {};
    std::string base = __system_property_get(kUrlProperty, value) > 0 ? value : kDefaultBaseUrl;
    while (!base.empty() && base.back() == '/') {
        base.pop_back();
    }
    return base + kUploadPath;
}

template <class T>
void DataIngestionClient::uploadAsync(const std::vector<T>& data,
                                      const std::string& campaignMetadata,
                                      const std::string& applicationId,
                                      const std::string& cohortId) {
    std::shared_ptr<InFlight> inFlight = inFlight_;
    inFlight->begin();
    try {
        auto client = std::make_unique<DataIngestionClient>(*this);
        std::thread([client = std::move(client), data, campaignMetadata, applicationId, cohortId,
                     inFlight]() mutable {
            client->upload(data, campaignMetadata, applicationId, cohortId);
            // The copy goes before the count drops, so that a waiter never
            // sees an idle client while this thread still holds its parts.
            client.reset();
            inFlight->end();
        }).detach();
    } catch (const std::exception& e) {
        // No thread (std::system_error) or no memory for its copies.
        inFlight->end();
        count("DataIngestionClientUploadThreadErrorCount");
        logger_.e("%s:Failed to start upload thread: %s", "uploadAsync", e.what());
    }
}

template <class T>
bool DataIngestionClient::upload(const std::vector<T>& data, const std::string& campaignMetadata,
                                 const std::string& applicationId, const std::string& cohortId) {
    const char* const fn = "upload";
    CampaignMetadata metadata;
    try {
        metadata = parseCampaignMetadata(campaignMetadata);
    } catch (const std::exception& e) {
        count("DataIngestionClientCampaignMetadataFailure");
        logger_.e("%s:Failed to parse campaign metadata: %s", fn, e.what());
        return false;
    }
    const std::string encoded = encodeVector(asInt32(data), metadata.elementDatatypeEndianness);
    const std::string document = createJsonPayload(encoded, metadata, applicationId, cohortId);

    // The access token travels with the upload: never over anything but TLS,
    // whatever the property says.
    const std::string url = endpointUrl();
    if (!isHttps(url)) {
        count("DataIngestionClientUploadResponseErrorCount");
        logger_.e("%s:Refusing to upload to %s: the ingestion URL must start with https://", fn,
                  url.c_str());
        return false;
    }

    std::unordered_map<std::string, std::string> headers;
    headers["Content-Type"] = "application/json";
    try {
        headers["x-qzt-access-token"] = authenticator_->getAuthToken();
    } catch (const std::exception& e) {
        count("DataIngestionClientMapTokenErrorCount");
        logger_.e("%s:Failed to get auth token: %s", fn, e.what());
        return false;
    }

    Response response;
    try {
        response = httpClient_->sendRequest(url, headers, document).get();
    } catch (const std::exception& e) {
        count("DataIngestionClientUploadResponseErrorCount");
        logger_.e("%s:Error in getting http response: %s", fn, e.what());
        logger_.e("%s:Error in uploading masked FAVs", fn);
        return false;
    }
    if (response.statusCode == 200) {
        logger_.d("%s:Successfully uploaded masked FAVs", fn);
        return true;
    }
    count("DataIngestionClientUploadResponseErrorCount");
    logger_.e("%s:HTTP error code: %d", fn, response.statusCode);
    logger_.e("%s:HTTP error body: %s", fn, response.body.c_str());
    logger_.e("%s:Error in uploading masked FAVs", fn);
    return false;
}

bool DataIngestionClient::waitForUploads(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> guard(inFlight_->lock);
    return inFlight_->idle.wait_for(guard, timeout, [this] { return inFlight_->running == 0; });
}

size_t DataIngestionClient::uploadsInFlight() const {
    std::lock_guard<std::mutex> guard(inFlight_->lock);
    return inFlight_->running;
}

template void DataIngestionClient::uploadAsync<int>(const std::vector<int>&, const std::string&,
                                                    const std::string&, const std::string&);
template bool DataIngestionClient::upload<int>(const std::vector<int>&, const std::string&,
                                               const std::string&, const std::string&);

}  // namespace fact
