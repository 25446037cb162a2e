#include "CloudTestDevice.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <secagg/Checksum.h>
#include <vemocore/vemo_core.h>

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

// The core handle and the masked result it delivers on its own thread.
struct CloudTestDevice::Core {
    Core() {
        const VemoCoreConfig config{VEMO_PROTOCOL_AES128CTR, 12, 1, 64, 1, 0};
        if (vemoHandleCreate(&config, this, &handle) != 0 ||
            vemoHandleRegisterIntegralResultCallback(handle, &Core::onResult) != 0) {
            throw std::runtime_error("cannot create a core handle");
        }
    }
    ~Core() { vemoHandleDestroy(handle); }

    static void onResult(VemoIntegralResult result, void* userdata) {
        auto* core = static_cast<Core*>(userdata);
        std::lock_guard<std::mutex> lock(core->mutex);
        core->masked.assign(result.maskedData, result.maskedData + result.count);
        core->metadata = result.firstText;
        core->cohortId = result.thirdText;
        core->delivered.notify_all();
    }

    VemoHandle handle = nullptr;
    std::mutex mutex;  // guards the result below
    std::condition_variable delivered;
    std::vector<int32_t> masked;
    std::string metadata;
    std::string cohortId;
};

CloudTestDevice::CloudTestDevice(std::string token, std::string applicationId)
    : token_(std::move(token)),
      applicationId_(std::move(applicationId)),
      core_(std::make_unique<Core>()) {}

CloudTestDevice::~CloudTestDevice() = default;
CloudTestDevice::CloudTestDevice(CloudTestDevice&&) noexcept = default;

const std::string& CloudTestDevice::cohortId() const {
    return core_->cohortId;
}

int CloudTestDevice::requestParticipation(CloudClient& cloud, const std::vector<int32_t>& values) {
    std::vector<int32_t> vector = values;
    vector.push_back(secagg::checksumOf(values.data(), values.size()));
    char* out = nullptr;
    if (vemoHandleIntegralInitiateNewRequest(core_->handle, applicationId_.c_str(), vector.data(),
                                             static_cast<unsigned>(vector.size()), kMetadata,
                                             &out) != 0) {
        throw std::runtime_error("the core refused the request");
    }
    const std::string text = out;
    vemoDestroyString(out);
    const auto result = cloud.post("/v20160207/events", token_,
                                   eventBody("RA.Tolmo.SecureAggregationSessionController",
                                             "ParticipationRequest", newMessageId(), text));
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
        if (!result || result->status != 200) {
            return false;
        }
        rapidjson::Document list;
        list.Parse(result->body.c_str());
        if (list.HasParseError()) {
            return false;
        }
        if (!list["directives"].Empty()) {
            rapidjson::Document payload;
            payload.Parse(list["directives"][0]["payload"].GetString());
            directive_ = compact(payload["payload"]);
            return true;
        }
    }
    return false;
}

std::string CloudTestDevice::uploadDocument(int32_t tamper) {
    std::unique_lock<std::mutex> lock(core_->mutex);
    // A directive masks once; later documents reuse the first result.
    if (core_->masked.empty()) {
        lock.unlock();
        if (vemoHandleMask(core_->handle, directive_.c_str()) != 0) {
            throw std::runtime_error("the core refused the directive: " + directive_);
        }
        lock.lock();
        if (!core_->delivered.wait_for(lock, std::chrono::seconds(10),
                                       [this] { return !core_->masked.empty(); })) {
            throw std::runtime_error("no masked result");
        }
    }
    std::vector<int32_t> words = core_->masked;
    words[0] =
        static_cast<int32_t>(static_cast<uint32_t>(words[0]) + static_cast<uint32_t>(tamper));
    return fact::createJsonPayload(fact::encodeVector(words, false),
                                   fact::parseCampaignMetadata(core_->metadata), applicationId_,
                                   core_->cohortId);
}

int CloudTestDevice::upload(CloudClient& cloud, int32_t tamper) {
    const auto result = cloud.post("/maskedFAVs", token_, uploadDocument(tamper));
    return result ? result->status : -1;
}

}  // namespace test
}  // namespace vemo
