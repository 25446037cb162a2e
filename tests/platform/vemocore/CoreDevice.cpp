#include "CoreDevice.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <cstring>

namespace vemocore {
namespace test {

CoreDevice::CoreDevice(std::chrono::milliseconds delay) : delay_(delay) {
    const VemoCoreConfig config{VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1, 0};
    EXPECT_EQ(0, vemoHandleCreate(&config, this, &handle));
    vemoHandleRegisterIntegralResultCallback(handle, [](VemoIntegralResult r, void* self) {
        static_cast<CoreDevice*>(self)->record(
            reinterpret_cast<const uint32_t*>(r.maskedData), r.count,
            std::string(r.firstText) + "|" + r.secondText + "|" + r.thirdText);
    });
    // The test hosts are little-endian, so a blob's bytes are its words.
    vemoHandleRegisterFlgrResultCallback(handle, [](VemoFlgrResult r, void* self) {
        static_cast<CoreDevice*>(self)->record(
            reinterpret_cast<const uint32_t*>(r.blob), r.length / 4,
            std::string(r.applicationId) + "|" + r.metadata + "|" + r.cohortId);
    });
}

secagg::ParticipationRequest CoreDevice::initiate(const std::vector<int32_t>& data, int& code) {
    char* out = nullptr;
    code = vemoHandleIntegralInitiateNewRequest(handle, "app", data.data(),
                                                static_cast<unsigned>(data.size()), "meta", &out);
    return parsed(out);
}

secagg::ParticipationRequest CoreDevice::initiate(const std::vector<int32_t>& data) {
    int code = -1;
    const secagg::ParticipationRequest request = initiate(data, code);
    EXPECT_EQ(0, code);
    return request;
}

secagg::ParticipationRequest CoreDevice::initiateFlgr(const std::vector<float>& values,
                                                      float scale) {
    std::vector<uint8_t> blob(values.size() * 4);
    std::memcpy(blob.data(), values.data(), blob.size());
    char* out = nullptr;
    EXPECT_EQ(0, vemoHandleFlgrInitiateNewRequest(handle, "app", blob.data(), blob.size(), scale,
                                                  "meta", &out));
    return parsed(out);
}

secagg::ParticipationRequest CoreDevice::parsed(char* out) {
    secagg::ParticipationRequest request;
    std::string error;
    if (out != nullptr) {
        EXPECT_TRUE(secagg::parseParticipationRequest(out, request, error)) << error;
        vemoDestroyString(out);
    }
    return request;
}

std::vector<Received> CoreDevice::finish() {
    if (handle != nullptr) {
        EXPECT_EQ(0, vemoHandleDestroy(handle));
        handle = nullptr;
    }
    std::lock_guard<std::mutex> guard(lock_);
    return received_;
}

size_t CoreDevice::delivered() {
    std::lock_guard<std::mutex> guard(lock_);
    return received_.size();
}

void CoreDevice::record(const uint32_t* words, size_t count, const std::string& texts) {
    std::this_thread::sleep_for(delay_);
    std::lock_guard<std::mutex> guard(lock_);
    received_.push_back({{words, words + count}, texts, std::this_thread::get_id()});
}

secagg::MaskDirective directiveFor(const secagg::ParticipationRequest& request,
                                   std::vector<secagg::PublicKey> neighbours) {
    secagg::MaskDirective d;
    d.requestId = request.requestId;
    RAND_bytes(d.sessionId.data(), static_cast<int>(d.sessionId.size()));
    d.kind = request.kind;
    d.name = request.name;
    d.secondName = request.secondName;
    d.length = request.length;
    d.cohortId = "cohort-7";
    d.neighbours = std::move(neighbours);
    return d;
}

}  // namespace test
}  // namespace vemocore
