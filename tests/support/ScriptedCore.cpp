#include "ScriptedCore.h"

#include <cstdlib>
#include <cstring>

namespace vemo {
namespace test {

namespace {

// A recognisable, never dereferenced handle value.
int gHandleTag;

char* copyOut(const std::string& text) {
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

}  // namespace

ScriptedCore& ScriptedCore::instance() {
    static ScriptedCore core;
    return core;
}

void ScriptedCore::reset() {
    std::lock_guard<std::mutex> guard(lock_);
    codes_ = Codes{};
    calls_ = Calls{};
    output_.clear();
    outputPresent_ = true;
    outputs_ = 0;
}

void ScriptedCore::setCodes(const Codes& codes) {
    std::lock_guard<std::mutex> guard(lock_);
    codes_ = codes;
}

void ScriptedCore::setInitiateOutput(const std::string& text, bool present) {
    std::lock_guard<std::mutex> guard(lock_);
    output_ = text;
    outputPresent_ = present;
}

ScriptedCore::Calls ScriptedCore::calls() {
    std::lock_guard<std::mutex> guard(lock_);
    return calls_;
}

VemoHandle ScriptedCore::handle() const {
    return reinterpret_cast<VemoHandle>(&gHandleTag);
}

bool ScriptedCore::deliverIntegral(const std::vector<int32_t>& data, const std::string& firstText,
                                   const std::string& secondText, const std::string& thirdText) {
    const Calls recorded = calls();
    if (recorded.integralCallback == nullptr) {
        return false;
    }
    recorded.integralCallback(
        VemoIntegralResult{data.data(), static_cast<uint32_t>(data.size()), firstText.c_str(),
                           secondText.c_str(), thirdText.c_str()},
        recorded.userdata);
    return true;
}

bool ScriptedCore::deliverFlgr(const std::vector<uint8_t>& blob) {
    const Calls recorded = calls();
    if (recorded.flgrCallback == nullptr) {
        return false;
    }
    recorded.flgrCallback(
        VemoFlgrResult{blob.data(), static_cast<uint32_t>(blob.size()), "", "", ""},
        recorded.userdata);
    return true;
}

bool ScriptedCore::log(VemoLogLevel level, const char* text) {
    const VemoLogCallback callback = calls().logCallback;
    if (callback == nullptr) {
        return false;
    }
    callback(level, text);
    return true;
}

}  // namespace test
}  // namespace vemo

using vemo::test::ScriptedCore;

namespace {

// The scripted output of an initiate call, or null.
char* initiateOutput(ScriptedCore& core) {
    if (!core.outputPresent_) {
        return nullptr;
    }
    ++core.outputs_;
    return vemo::test::copyOut(core.output_.empty() ? "request-" + std::to_string(core.outputs_)
                                                    : core.output_);
}

}  // namespace

extern "C" {

int vemoRegisterLoggingCallback(VemoLogCallback callback, VemoLogLevel maxLevel) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.logCallback = callback;
    core.calls_.logMaxLevel = maxLevel;
    return core.codes_.registerLogging;
}

int vemoHandleCreate(const VemoCoreConfig* config, void* userdata, VemoHandle* handle) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.config = *config;
    core.calls_.userdata = userdata;
    if (core.codes_.create == 0) {
        *handle = core.handle();
    }
    return core.codes_.create;
}

int vemoHandleRegisterFlgrResultCallback(VemoHandle, VemoFlgrResultCallback callback) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.flgrCallback = callback;
    return core.codes_.registerFlgr;
}

int vemoHandleRegisterIntegralResultCallback(VemoHandle, VemoIntegralResultCallback callback) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.integralCallback = callback;
    return core.codes_.registerIntegral;
}

int vemoHandleFlgrInitiateNewRequest(VemoHandle, const char*, const uint8_t* blob,
                                     size_t blobLength, float scaleValue, const char* metadata,
                                     char** out) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.flgrBlobs.emplace_back(blob, blob + blobLength);
    core.calls_.flgrScales.push_back(scaleValue);
    core.calls_.flgrMetadata.push_back(metadata);
    *out = initiateOutput(core);
    return core.codes_.flgrInitiate;
}

int vemoHandleFlgrInitiateNewRequestFilePath(VemoHandle, const char*, const char*, float,
                                             const char*, char**) {
    return 1;
}

int vemoHandleIntegralInitiateNewRequest(VemoHandle, const char* name, const int32_t* data,
                                         unsigned int count, const char*, char** out) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.integralNames.push_back(name);
    core.calls_.integralData.emplace_back(data, data + count);
    *out = initiateOutput(core);
    return core.codes_.integralInitiate;
}

int vemoHandleMask(VemoHandle, const char* directive) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.masks.push_back(directive);
    return core.codes_.mask;
}

int vemoDestroyString(char* text) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    std::free(text);
    return core.codes_.destroyString;
}

int vemoHandleDestroy(VemoHandle handle) {
    ScriptedCore& core = ScriptedCore::instance();
    std::lock_guard<std::mutex> guard(core.lock_);
    core.calls_.destroyed.push_back(handle);
    return core.codes_.destroy;
}

int vemoLibPrintAttributes(void) {
    return 0;
}

}  // extern "C"
