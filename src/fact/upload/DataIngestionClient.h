#pragma once
// Uploads masked analytics vectors to the ingestion service: parses the
// campaign metadata, encodes the vector, builds the upload document, adds the
// access token and posts the document to <base URL>/maskedFAVs, where the base
// URL is the system property kUrlProperty (re-read for every upload; default
// kDefaultBaseUrl) and must be https. Only a 200 answer is success. Failures are counted in the
// heartbeat, logged once and reported as false; nothing is retried, queued or
// persisted.
//
// uploadAsync() returns at once and uploads on a detached thread that holds a
// copy of the client, so the thread never refers to the object it was started
// from. Copies share the authenticator, the HTTP client and the count of
// uploads in flight, which waitForUploads() waits on (orderly exit, tests).
//
// Thread-safety: upload() and uploadAsync() may be called from any number of
// threads at once; the client itself holds no mutable state besides the
// in-flight count, which has its own lock.

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "common/VemoLogger.h"
#include "fact/upload/IHttpClient.h"
#include "fact/upload/IUploadApiAuthenticator.h"

namespace fact {

class DataIngestionClient {
  public:
    // Base URL of the ingestion service, without a trailing path.
    static constexpr const char kUrlProperty[] = "persist.vemo.ingestion.url";
    static constexpr const char kDefaultBaseUrl[] = "https://ingestion.vemo.nimbel.com";
    static constexpr const char kUploadPath[] = "/maskedFAVs";

    DataIngestionClient(std::shared_ptr<IUploadApiAuthenticator> authenticator,
                        std::shared_ptr<IHttpClient> httpClient);

    // Starts upload() on a detached thread and returns at once; the result is
    // dropped. Only T = int is provided.
    template <class T>
    void uploadAsync(const std::vector<T>& data, const std::string& campaignMetadata,
                     const std::string& applicationId, const std::string& cohortId);

    // Uploads on the calling thread; true only when the service answered 200.
    // Never throws. Only T = int is provided.
    template <class T>
    bool upload(const std::vector<T>& data, const std::string& campaignMetadata,
                const std::string& applicationId, const std::string& cohortId);

    // Waits until no upload started by uploadAsync() on this client or its
    // copies is running; false when the timeout passed first.
    bool waitForUploads(std::chrono::milliseconds timeout) const;
    size_t uploadsInFlight() const;

    // The endpoint as it stands now: the property's base URL (or the
    // default) with kUploadPath appended.
    static std::string endpointUrl();
    // True when `url`'s scheme is https (in any case): the only endpoint an
    // upload, which carries the access token, is sent to.
    static bool isHttps(const std::string& url);

  private:
    struct InFlight;

    std::shared_ptr<IUploadApiAuthenticator> authenticator_;
    std::shared_ptr<IHttpClient> httpClient_;
    vemo::VemoLogger logger_;
    std::shared_ptr<InFlight> inFlight_;
};

extern template void DataIngestionClient::uploadAsync<int>(const std::vector<int>&,
                                                           const std::string&, const std::string&,
                                                           const std::string&);
extern template bool DataIngestionClient::upload<int>(const std::vector<int>&, const std::string&,
                                                      const std::string&, const std::string&);

}  // namespace fact
