#include "CoreDevice.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <cstring>

namespace vemocore {
namespace test {

CoreDevice::CoreDevice(const VemoCoreConfig& config) {
    EXPECT_EQ(0, vemoHandleCreate(&config, this, &handle));
    EXPECT_EQ(0, vemoHandleRegisterIntegralResultCallback(handle, onIntegral));
    EXPECT_EQ(0, vemoHandleRegisterFlgrResultCallback(handle, onFlgr));
}

secagg::ParticipationRequest CoreDevice::initiate(const std::vector<int32_t>& data, int& code,
                                                  const std::string& name,
                                                  const std::string& second) {
    char* out = nullptr;
    code = vemoHandleIntegralInitiateNewRequest(handle, name.c_str(), data.data(),
                                                static_cast<unsigned>(data.size()), second.c_str(),
                                                &out);
    secagg::ParticipationRequest request;
    if (out != nullptr) {
        std::string error;
        EXPECT_TRUE(secagg::parseParticipationRequest(out, request, error)) << error;
        vemoDestroyString(out);
    }
    return request;
}

secagg::ParticipationRequest CoreDevice::initiateFlgr(const std::vector<float>& values,
                                                      float scale) {
    std::vector<uint8_t> blob(values.size() * 4);
    std::memcpy(blob.data(), values.data(), blob.size());  // the test hosts are little-endian
    char* out = nullptr;
    EXPECT_EQ(0, vemoHandleFlgrInitiateNewRequest(handle, "app", blob.data(), blob.size(), scale,
                                                  "meta", &out));
    secagg::ParticipationRequest request;
    std::string error;
    EXPECT_TRUE(out != nullptr && secagg::parseParticipationRequest(out, request, error)) << error;
    vemoDestroyString(out);
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

void CoreDevice::onIntegral(VemoIntegralResult result, void* userdata) {
    auto* device = static_cast<CoreDevice*>(userdata);
    Received r;
    r.words.assign(result.maskedData, result.maskedData + result.count);
    r.first = result.firstText;
    r.second = result.secondText;
    r.third = result.thirdText;
    r.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(device->lock_);
    device->received_.push_back(std::move(r));
}

void CoreDevice::onFlgr(VemoFlgrResult result, void* userdata) {
    auto* device = static_cast<CoreDevice*>(userdata);
    Received r;
    r.blob.assign(result.blob, result.blob + result.length);
    r.first = result.applicationId;
    r.second = result.metadata;
    r.third = result.cohortId;
    r.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(device->lock_);
    device->received_.push_back(std::move(r));
}

secagg::MaskDirective directiveFor(const secagg::ParticipationRequest& request,
                                   const secagg::SessionId& session,
                                   std::vector<secagg::PublicKey> neighbours) {
    secagg::MaskDirective d;
    d.requestId = request.requestId;
    d.sessionId = session;
    d.kind = request.kind;
    d.name = request.name;
    d.secondName = request.secondName;
    d.length = request.length;
    d.cohortId = "cohort-7";
    d.neighbours = std::move(neighbours);
    return d;
}

secagg::SessionId randomSession() {
    secagg::SessionId session{};
    RAND_bytes(session.data(), static_cast<int>(session.size()));
    return session;
}

}  // namespace test
}  // namespace vemocore
