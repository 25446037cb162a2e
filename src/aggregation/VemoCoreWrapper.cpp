#include "aggregation/VemoCoreWrapper.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"

namespace {

const vemo::VemoLogger logger{"VemoCoreWrapper"};

void countMetric(const char* name) {
    fact::FactHeartbeatMetric::GetInstance().addCount(name);
}

void releaseString(char* cstr) {
    if (cstr != nullptr) {
        vemoDestroyString(cstr);
    }
}

}  // namespace

void vemoCoreLogCallback(VemoLogLevel level, const char* text) {
    switch (level) {
        case VEMO_LOG_ERROR:
            logger.e("%s", text);
            break;
        case VEMO_LOG_WARNING:
            logger.w("%s", text);
            break;
        case VEMO_LOG_INFO:
            logger.i("%s", text);
            break;
        case VEMO_LOG_DEBUG:
            logger.d("%s", text);
            break;
        case VEMO_LOG_VERBOSE:
            logger.v("%s", text);
            break;
        default:
            logger.e("unknown log level: %d", static_cast<int>(level));
            break;
    }
}

namespace vemo {

VemoCoreWrapper::VemoCoreWrapper() : VemoCoreWrapper(VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1) {}

VemoCoreWrapper::VemoCoreWrapper(VemoPreferredProtocol protocol, unsigned p1, unsigned p2,
                                 unsigned p3, unsigned p4) {
    // The members are destroyed by the throw itself, before the exception
    // reaches the caller.
    if (vemoRegisterLoggingCallback(vemoCoreLogCallback, VEMO_LOG_VERBOSE) != 0) {
        countMetric("VemoHandleRegisterLoggingCallbackError");
        throw std::runtime_error("vemoRegisterLoggingCallback failed");
    }
    const VemoCoreConfig config{protocol, p1, p2, p3, p4, 0};
    if (vemoHandleCreate(&config, this, &handle_) != 0) {
        countMetric("VemoHandleCreateError");
        throw std::runtime_error("vemoHandleCreate failed");
    }
    if (vemoHandleRegisterFlgrResultCallback(handle_, vemoFlgrResultCallback) != 0) {
        countMetric("VemoHandleRegisterFlgrResultCallbackError");
        throw std::runtime_error("vemoHandleRegisterFlgrResultCallback failed");
    }
    if (vemoHandleRegisterIntegralResultCallback(handle_, vemoIntegralResultCallback) != 0) {
        countMetric("VemoHandleRegisterIntegralResultCallbackError");
        throw std::runtime_error("vemoHandleRegisterIntegralResultCallback failed");
    }
}

VemoCoreWrapper::~VemoCoreWrapper() {
    vemoHandleDestroy(handle_);
}

void VemoCoreWrapper::setVemoFlgrResultCallback(std::function<void(VemoFlgrResult)> callback) {
    flgrResultCallback_ = std::move(callback);
}

void VemoCoreWrapper::setVemoIntegralResultCallback(
    std::function<void(VemoIntegralResult)> callback) {
    integralResultCallback_ = std::move(callback);
}

int VemoCoreWrapper::flgrInitiateNewRequest(const std::string& applicationId,
                                            std::vector<uint8_t> blob, float scaleValue,
                                            const std::string& metadata, std::string& out) {
    char* cstr = nullptr;
    const int code =
        vemoHandleFlgrInitiateNewRequest(handle_, applicationId.c_str(), blob.data(), blob.size(),
                                         scaleValue, metadata.c_str(), &cstr);
    if (code != 0 || cstr == nullptr) {
        // A string handed out with a failure code (an eviction) is still ours.
        releaseString(cstr);
        throw std::runtime_error("vemoHandleFlgrInitiateNewRequest failed");
    }
    out = cstr;
    if (vemoDestroyString(cstr) != 0) {
        throw std::runtime_error("vemoDestroyString failed");
    }
    return 0;
}

int VemoCoreWrapper::integralInitiateNewRequest(const std::string& name, const int* data,
                                                unsigned count, const std::string& second,
                                                std::string& out) {
    char* cstr = nullptr;
    const int code = vemoHandleIntegralInitiateNewRequest(handle_, name.c_str(), data, count,
                                                          second.c_str(), &cstr);
    if (code == 5) {
        logger.w("%s:Old VEMO request evicted", "integralInitiateNewRequest");
        countMetric("VemoOldRequestEvicted");
    } else if (code != 0 || cstr == nullptr) {
        countMetric("ParticipationRequestError");
        releaseString(cstr);
        throw std::runtime_error("vemoHandleIntegralInitiateNewRequest failed");
    }
    // The core promises a string with code 5; a null one is taken as empty
    // rather than read.
    out = cstr != nullptr ? cstr : "";
    if (vemoDestroyString(cstr) != 0) {
        countMetric("ParticipationRequestError");
        throw std::runtime_error("vemoDestroyString failed");
    }
    return 0;
}

VemoStatus VemoCoreWrapper::mask(const std::string& directive) {
    const auto start = std::chrono::system_clock::now();
    const int code = vemoHandleMask(handle_, directive.c_str());
    const auto end = std::chrono::system_clock::now();
    (void)start;
    (void)end;
    switch (code) {
        case 0:
        case 5:
            return kVemoStatusOk;
        case 1:
            return 1;
        default:
            return kVemoStatusSetupFailure;
    }
}

void vemoFlgrResultCallback(VemoFlgrResult result, void* userdata) {
    if (userdata == nullptr) {
        logger.e("%s:Could not cast userdata to VemoCoreWrapper", "vemoFlgrResultCallback");
        return;
    }
    const auto& callback = static_cast<VemoCoreWrapper*>(userdata)->flgrResultCallback_;
    if (callback) {
        callback(result);
    }
}

void vemoIntegralResultCallback(VemoIntegralResult result, void* userdata) {
    if (userdata == nullptr) {
        logger.e("%s:Could not cast userdata to VemoCoreWrapper", "vemoIntegralResultCallback");
        return;
    }
    const auto& callback = static_cast<VemoCoreWrapper*>(userdata)->integralResultCallback_;
    if (callback) {
        callback(result);
    }
}

}  // namespace vemo
