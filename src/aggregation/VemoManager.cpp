#include "aggregation/VemoManager.h"

#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/DevicePaths.h"
#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/upload/DataIngestionClientWrapper.h"
#include "tolmocomm/TolmoComm.h"

namespace vemo {
namespace {

const VemoLogger logger("VemoManager");

const char kUploadMaskedData[] = "UploadMaskedData";
const char kParticipationRequest[] = "ParticipationRequest";

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

// The core's texts are never null by contract; a null one must still not
// take the process down.
std::string orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

void writeString(Writer& writer, const char* key, const std::string& value) {
    writer.Key(key);
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

}  // namespace

constexpr const char VemoManager::kSessionNamespace[];
constexpr const char VemoManager::kCapabilityPayload[];

VemoManager& VemoManager::getInstanceWithTolmoComm(tolmocomm::ITolmoComm& comm) {
    static VemoManager instance(comm);
    return instance;
}

VemoManager& VemoManager::getInstance() {
    return getInstanceWithTolmoComm(tolmocomm::TolmoComm::getImpl());
}

VemoManager::VemoManager(tolmocomm::ITolmoComm& comm) : comm(comm) {
    // Made first so that it is destroyed after the manager: the core may still
    // deliver a masked vector to it while the manager's core wrapper goes.
    fact::DataIngestionClientWrapper::getInstance();
    coreWrapper = std::make_shared<VemoCoreWrapper>();
    coreWrapper->setVemoFlgrResultCallback([this](VemoFlgrResult r) { onFlgrResult(r); });
    coreWrapper->setVemoIntegralResultCallback(
        [this](VemoIntegralResult r) { onIntegralResult(r); });

    const std::vector<tolmocomm::DirectiveConfig> directives{
        {kSessionNamespace, kUploadMaskedData}};
    const tolmocomm::TolmoEvent announcement("Tolmo.Discovery", "AddOrUpdateReport",
                                             kCapabilityPayload, "/v20160207/event", false, "1.0",
                                             "", "", "");
    comm.registerClient(
        announcement, nullptr, directives,
        [](const tolmocomm::TolmoEventResult& result) {
            logger.i("%s:EventDeliveryConfirmationCb: result is %s", "operator()",
                     std::to_string(result.getResultCode()).c_str());
        },
        [this](const tolmocomm::TolmoDirective& directive) { onDirective(directive); });
}

VemoManager::~VemoManager() {
    comm.shutdown();
}

void VemoManager::onDirective(const tolmocomm::TolmoDirective& directive) {
    logger.i("%s:DirectiveCb: directive is %s", "operator()", serialize(directive).c_str());
    rapidjson::Document document;
    document.Parse(directive.getPayload().data(), directive.getPayload().size());
    if (document.HasParseError()) {
        logger.e("%s:VEMO directive can not been parsed: %s", "operator()",
                 directive.getPayload().c_str());
        return;
    }
    const rapidjson::Value* payload = nullptr;
    if (document.IsObject()) {
        const auto member = document.FindMember("payload");
        payload = member != document.MemberEnd() ? &member->value : nullptr;
    }
    if (payload == nullptr || !payload->IsObject()) {
        logger.e("%s:Payload does not exist in the directive or is not an object: %s", "operator()",
                 directive.getPayload().c_str());
        return;
    }
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    payload->Accept(writer);
    if (coreWrapper->mask(std::string(buffer.GetString(), buffer.GetSize())) != 0) {
        fact::FactHeartbeatMetric::GetInstance().addCount("DataMaskError");
    }
}

void VemoManager::onFlgrResult(VemoFlgrResult result) {
    logger.i("%s:Handling Flgr result", "operator()");
    if (result.length == 0) {
        logger.e("%s:Flgr result blob size is 0", "operator()");
        return;
    }
    // Masked gradients are not taken further on the device.
    const std::vector<uint8_t> blob(result.blob, result.blob + result.length);
    static_cast<void>(blob);
}

void VemoManager::onIntegralResult(VemoIntegralResult result) {
    logger.i("%s:Handling Integral result", "operator()");
    if (result.count == 0) {
        logger.e("%s:Masked data size is 0", "operator()");
        return;
    }
    const std::vector<int> masked(result.maskedData, result.maskedData + result.count);
    fact::DataIngestionClientWrapper::getInstance().uploadAsync(
        masked, orEmpty(result.firstText), orEmpty(result.secondText), orEmpty(result.thirdText));
}

int VemoManager::flgrRequest(const std::string& /*client*/, const ipc::FlgrFileRequest& request) {
    logger.i("%s:New flgrRequest", "flgrRequest");
    std::vector<uint8_t> blob;
    if (readFileToBlob(paths::hostPath(request.getFilePath()), blob) != 0) {
        logger.e("%s:Cannot open the gradient file: %s", "flgrRequest",
                 request.getFilePath().c_str());
        return 1;
    }
    // The core masks the device's test gradients, not the requested file's.
    std::vector<uint8_t> testBlob;
    const int read = readFileToBlob(paths::hostPath(paths::kGradientFile), testBlob);
    logger.i("%s:Mock gradient file: %s", "flgrRequest", paths::kGradientFile);
    if (read != 0) {
        logger.e("%s:Cannot open the gradient file: %s", "flgrRequest", paths::kGradientFile);
        return 1;
    }
    std::string out;
    const int status =
        coreWrapper->flgrInitiateNewRequest(request.getApplicationId(), std::move(testBlob),
                                            request.getScaleValue(), request.getMetadata(), out);
    if (status != 0) {
        logger.e("%s:Could not start service connector/host IPC. Status = %d", "flgrRequest",
                 status);
        return status;
    }
    comm.sendEvent(tolmocomm::TolmoEvent(kSessionNamespace, kParticipationRequest, out,
                                         "/v20160207/event", false, "1", "", "", ""),
                   eventDeliveryConfirmationCallback);
    return 0;
}

int VemoManager::handleFactVectorCallback(const std::string& name, const int* data, unsigned count,
                                          const std::string& second) {
    if (count == 0) {
        logger.e("%s:FACT vector size is 0", "handleFactVectorCallback");
        return 1;
    }
    logger.d("%s:Adding checksum to FACT vector", "handleFactVectorCallback");
    const std::vector<int> vec = appendChecksum(data, count);
    std::string out;
    const int status = coreWrapper->integralInitiateNewRequest(
        name, vec.data(), static_cast<unsigned>(vec.size()), second, out);
    if (status != 0) {
        logger.e("%s:Could not initiate integral new request. Status = %d",
                 "handleFactVectorCallback", status);
        return status;
    }
    comm.sendEvent(tolmocomm::TolmoEvent(kSessionNamespace, kParticipationRequest, out,
                                         "/v20160207/events", false, "1", "", "", ""),
                   eventDeliveryConfirmationCallback);
    return 0;
}

std::vector<int> appendChecksum(const int* data, unsigned count) {
    if (count == 0) {
        return {};
    }
    std::vector<int> vec(data, data + count);
    int64_t sum = 0;
    for (const int value : vec) {
        sum += value;
    }
    vec.push_back(static_cast<int>(sum % (int64_t{1} << 31)));
    return vec;
}

int readFileToBlob(const std::string& path, std::vector<uint8_t>& blob) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    int error = fd < 0 ? errno : 0;
    struct stat info {};
    if (error == 0 && ::fstat(fd, &info) != 0) {
        error = errno;
    } else if (error == 0 && !S_ISREG(info.st_mode)) {
        error = EISDIR;  // a directory or a device: nothing to read whole
    } else if (error == 0 && static_cast<uint64_t>(info.st_size) > kMaxBlobBytes) {
        error = EFBIG;
    }
    std::vector<uint8_t> bytes(error == 0 ? static_cast<size_t>(info.st_size) : 0);
    size_t done = 0;
    while (error == 0 && done < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            error = n < 0 ? errno : EIO;  // shrank while being read
            break;
        }
        done += static_cast<size_t>(n);
    }
    if (fd >= 0) {
        ::close(fd);
    }
    if (error != 0) {
        logger.e("%s:Error: %s, %s", "readFileToBlob", std::strerror(error), path.c_str());
        return 1;
    }
    blob = std::move(bytes);
    return 0;
}

std::string serialize(const tolmocomm::TolmoDirective& directive) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("event");
    writer.StartObject();
    writer.Key("header");
    writer.StartObject();
    writeString(writer, "namespace", directive.getNamespace());
    writeString(writer, "name", directive.getName());
    if (!directive.getPayloadVersion().empty()) {
        writeString(writer, "payloadVersion", directive.getPayloadVersion());
    }
    writeString(writer, "messageId", directive.getMessageId());
    writeString(writer, "eventCorrelationToken", directive.getEventCorrelationToken());
    writer.EndObject();
    if (!directive.getKeys().empty()) {
        writeString(writer, "keys", directive.getKeys());
    }
    rapidjson::Document payload;
    payload.Parse(directive.getPayload().data(), directive.getPayload().size());
    if (payload.HasParseError()) {
        // The log still shows what came, as text.
        writeString(writer, "payload", directive.getPayload());
    } else {
        writer.Key("payload");
        payload.Accept(writer);
    }
    writer.EndObject();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

void eventDeliveryConfirmationCallback(const tolmocomm::TolmoEventResult& result) {
    const int code = result.getResultCode();
    if (code < tolmocomm::TolmoEventResult::kDelivered ||
        code > tolmocomm::TolmoEventResult::kAlreadyDelivered) {
        fact::FactHeartbeatMetric::GetInstance().addCount("ParticipationRequestPrqEventError");
    }
}

}  // namespace vemo
