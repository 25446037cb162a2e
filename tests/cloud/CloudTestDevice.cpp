#include "CloudTestDevice.h"

#include <openssl/rand.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <secagg/Checksum.h>
#include <secagg/MaskDirective.h>
#include <secagg/Masker.h>
#include <secagg/ParticipationRequest.h>
#include <secagg/Transcript.h>

#include "fact/upload/CampaignMetadata.h"
#include "fact/upload/VectorEncoding.h"

namespace vemo {
namespace test {

namespace {

std::string compact(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

}  // namespace

const char* const CloudTestDevice::kMetadata =
    R"({"differential_privacy":"{\"cohort_size\": 4}","campaign_id":"wakeword_quality"})";

CloudClient::CloudClient(int port, const std::string& caFile) : client("127.0.0.1", port) {
    client.set_ca_cert_path(caFile.c_str());
    client.enable_server_certificate_verification(true);
    client.set_connection_timeout(10, 0);
    client.set_read_timeout(30, 0);
}

httplib::Result CloudClient::post(const std::string& path, const std::string& token,
                                  const std::string& body) {
    httplib::Headers headers;
    if (!token.empty()) {
        headers.emplace("x-qzt-access-token", token);
    }
    return client.Post(path.c_str(), headers, body, "application/json");
}

httplib::Result CloudClient::get(const std::string& path, const std::string& token) {
    httplib::Headers headers;
    if (!token.empty()) {
        headers.emplace("x-qzt-access-token", token);
    }
    return client.Get(path.c_str(), headers);
}

std::string newMessageId() {
    static std::atomic<int> next{0};
    return "message-" + std::to_string(::getpid()) + "-" + std::to_string(++next);
}

std::string eventBody(const std::string& eventNamespace, const std::string& name,
                      const std::string& messageId, const std::string& payload) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    w.Key("event");
    w.StartObject();
    w.Key("header");
    w.StartObject();
    w.Key("namespace");
    w.String(eventNamespace);
    w.Key("name");
    w.String(name);
    w.Key("messageId");
    w.String(messageId);
    w.Key("payloadVersion");
    w.String("1");
    w.EndObject();
    w.Key("payload");
    w.String(payload);
    w.EndObject();
    w.EndObject();
    return buffer.GetString();
}

CloudTestDevice::CloudTestDevice(std::string token, std::string applicationId)
    : token_(std::move(token)), applicationId_(std::move(applicationId)) {}

int CloudTestDevice::requestParticipation(CloudClient& cloud, const std::vector<int32_t>& values) {
    vector_ = values;
    vector_.push_back(secagg::checksumOf(values.data(), values.size()));
    key_ = secagg::KeyPair::generate();
    secagg::ParticipationRequest request;
    RAND_bytes(request.requestId.data(), static_cast<int>(request.requestId.size()));
    request.name = applicationId_;
    request.secondName = kMetadata;
    request.length = static_cast<uint32_t>(vector_.size());
    request.publicKey = key_->publicKey();
    std::string text;
    secagg::writeParticipationRequest(request, text);
    const auto result = cloud.post("/v20160207/events", token_,
                                   eventBody("RA.Tolmo.SecureAggregationSessionController",
                                             "ParticipationRequest", newMessageId(), text));
    return result ? result->status : -1;
}

bool CloudTestDevice::receiveDirective(CloudClient& cloud) {
    auto result = cloud.get("/v20160207/directives?after=0", token_);
    for (int retry = 0; retry < 100 && result && result->status == 503; ++retry) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        result = cloud.get("/v20160207/directives?after=0", token_);
    }
    if (!result || result->status != 200) {
        return false;
    }
    rapidjson::Document list;
    list.Parse(result->body.c_str());
    if (list.HasParseError() || list["directives"].Empty()) {
        return false;
    }
    rapidjson::Document payload;
    payload.Parse(list["directives"][0]["payload"].GetString());
    directive_ = compact(payload["payload"]);
    return true;
}

std::string CloudTestDevice::uploadDocument(int32_t tamper) {
    secagg::MaskDirective directive;
    std::string error;
    bool requestIdRead = false;
    if (secagg::parseMaskDirective(directive_, directive, error, requestIdRead, 1000) !=
        secagg::DirectiveParse::Ok) {
        throw std::runtime_error("mask directive: " + error);
    }
    std::vector<uint32_t> words(vector_.begin(), vector_.end());
    const secagg::Masker masker;
    if (masker.mask(*key_, directive.neighbours, secagg::transcriptHash(directive), words.data(),
                    words.size()) != secagg::MaskResult::Ok) {
        throw std::runtime_error("masking failed");
    }
    words[0] += static_cast<uint32_t>(tamper);
    cohortId_ = directive.cohortId;
    return fact::createJsonPayload(
        fact::encodeVector(std::vector<int32_t>(words.begin(), words.end()), false),
        fact::parseCampaignMetadata(kMetadata), applicationId_, cohortId_);
}

int CloudTestDevice::upload(CloudClient& cloud, int32_t tamper) {
    const auto result = cloud.post("/maskedFAVs", token_, uploadDocument(tamper));
    return result ? result->status : -1;
}

}  // namespace test
}  // namespace vemo
