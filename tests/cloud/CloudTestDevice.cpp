#include "CloudTestDevice.h"

#include <openssl/rand.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "CloudWire.h"
#include "fact/upload/CampaignMetadata.h"
#include "fact/upload/VectorEncoding.h"
#include "secagg/Checksum.h"
#include "secagg/Masker.h"
#include "secagg/ParticipationRequest.h"
#include "secagg/Transcript.h"

namespace vemo {
namespace test {

namespace {

// The metadata text of the tests' campaign.
const char kMetadata[] =
    R"({"differential_privacy":"{\"cohort_size\": 4}","campaign_id":"wakeword_quality"})";

httplib::Headers tokenHeader(const std::string& token) {
    return token.empty() ? httplib::Headers{} : httplib::Headers{{"x-qzt-access-token", token}};
}

}  // namespace

CloudClient::CloudClient(int port, const std::string& caFile) : client("127.0.0.1", port) {
    client.set_ca_cert_path(caFile.c_str());
    client.enable_server_certificate_verification(true);
    client.set_connection_timeout(10, 0);
    client.set_read_timeout(30, 0);
}

httplib::Result CloudClient::post(const std::string& path, const std::string& token,
                                  const std::string& body) {
    return client.Post(path.c_str(), tokenHeader(token), body, "application/json");
}

httplib::Result CloudClient::get(const std::string& path, const std::string& token) {
    return client.Get(path.c_str(), tokenHeader(token));
}

std::string eventBody(const std::string& eventNamespace, const std::string& name,
                      const std::string& messageId, const std::string& payload) {
    return tolmocomm::wire::eventDocument(
        tolmocomm::TolmoEvent(eventNamespace, name, payload, "", false, "1", "", "", ""),
        messageId);
}

CloudTestDevice::CloudTestDevice(std::string token, std::string applicationId)
    : token_(std::move(token)),
      applicationId_(std::move(applicationId)),
      keys_(secagg::KeyPair::generate()) {}

int CloudTestDevice::requestParticipation(CloudClient& cloud, const std::vector<int32_t>& values) {
    words_ = values;
    words_.push_back(secagg::checksumOf(values.data(), values.size()));
    secagg::ParticipationRequest request;
    RAND_bytes(request.requestId.data(), static_cast<int>(request.requestId.size()));
    request.name = applicationId_;
    request.secondName = kMetadata;
    request.length = static_cast<uint32_t>(words_.size());
    request.publicKey = keys_.publicKey();
    std::string text;
    secagg::writeParticipationRequest(request, text);
    const auto result =
        cloud.post("/v20160207/events", token_,
                   eventBody("RA.Tolmo.SecureAggregationSessionController", "ParticipationRequest",
                             tolmocomm::wire::newMessageId(), text));
    return result ? result->status : -1;
}

bool CloudTestDevice::receiveDirective(CloudClient& cloud) {
    // As a device does: ask again after an empty answer, back off after 503.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::chrono::milliseconds backoff(25);
    while (std::chrono::steady_clock::now() < until) {
        const auto result = cloud.get("/v20160207/directives?after=0", token_);
        if (result && result->status == 503) {
            backoff = std::min(backoff * 2, std::chrono::milliseconds(1000));
            std::this_thread::sleep_for(backoff);
            continue;
        }
        rapidjson::Document list;
        if (!result || result->status != 200 || list.Parse(result->body.c_str()).HasParseError()) {
            return false;
        }
        if (list["directives"].Empty()) {
            continue;
        }
        rapidjson::Document payload;
        payload.Parse(list["directives"][0]["payload"].GetString());
        rapidjson::StringBuffer text;
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        payload["payload"].Accept(writer);
        std::string error;
        bool named = false;
        return secagg::parseMaskDirective(text.GetString(), directive_, error, named, 64) ==
               secagg::DirectiveParse::Ok;
    }
    return false;
}

std::string CloudTestDevice::uploadDocument(int32_t tamper) const {
    std::vector<int32_t> words = words_;
    if (secagg::Masker().mask(keys_, directive_.neighbours, secagg::transcriptHash(directive_),
                              reinterpret_cast<uint32_t*>(words.data()),
                              words.size()) != secagg::MaskResult::Ok) {
        throw std::runtime_error("cannot mask for " + directive_.cohortId);
    }
    words[0] =
        static_cast<int32_t>(static_cast<uint32_t>(words[0]) + static_cast<uint32_t>(tamper));
    return fact::createJsonPayload(fact::encodeVector(words, false),
                                   fact::parseCampaignMetadata(kMetadata), applicationId_,
                                   directive_.cohortId);
}

int CloudTestDevice::upload(CloudClient& cloud, int32_t tamper) const {
    const auto result = cloud.post("/maskedFAVs", token_, uploadDocument(tamper));
    return result ? result->status : -1;
}

}  // namespace test
}  // namespace vemo
