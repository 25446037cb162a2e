// Feeds arbitrary bytes to the secure-aggregation readers. First byte 0: the
// rest is a participation request for the protocol library's reader. Any
// other first byte: the rest is a mask directive for vemoHandleMask, on a
// handle holding a fresh request; the placeholders RID and PK in the input
// become that request's id and a valid peer key, so that mutations of a
// well-formed directive reach the checks behind the parser. Anything but a
// code from 0 to 4, or a result for a refused directive, is a finding.
#include <secagg/Base64Url.h>
#include <secagg/KeyPair.h>
#include <secagg/ParticipationRequest.h>
#include <stdint.h>
#include <stdlib.h>
#include <vemocore/vemo_core.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

VemoHandle gHandle = nullptr;
std::atomic<int> gResults{0};
std::string gPeer;

void onResult(VemoIntegralResult, void*) {
    gResults.fetch_add(1);
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const VemoCoreConfig config{VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1, 0};
    if (vemoHandleCreate(&config, nullptr, &gHandle) != 0 ||
        vemoHandleRegisterIntegralResultCallback(gHandle, onResult) != 0) {
        abort();
    }
    gPeer = secagg::base64UrlEncode(secagg::KeyPair::generate().publicKey());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] == 0) {
        secagg::ParticipationRequest request;
        std::string error;
        secagg::parseParticipationRequest(text, request, error);
        return 0;
    }
    const int32_t values[3] = {1, -2, 3};
    char* out = nullptr;
    const int created =
        vemoHandleIntegralInitiateNewRequest(gHandle, "app", values, 3, "meta", &out);
    if ((created != 0 && created != 5) || out == nullptr) {
        abort();
    }
    secagg::ParticipationRequest request;
    std::string error;
    if (!secagg::parseParticipationRequest(out, request, error)) {
        abort();
    }
    vemoDestroyString(out);
    replaceAll(text, "RID", secagg::base64UrlEncode(request.requestId));
    replaceAll(text, "PK", gPeer);
    // The text ends at its first NUL, as a C caller's would.
    const int before = gResults.load();
    const int code = vemoHandleMask(gHandle, text.c_str());
    if (code < 0 || code > 4) {
        abort();
    }
    // A refused directive delivers nothing; an accepted one is delivered on
    // the core's thread, and is awaited so that the next input starts quiet.
    if (code != 0) {
        if (gResults.load() != before) {
            abort();
        }
    } else {
        for (int i = 0; gResults.load() == before; ++i) {
            if (i == 10000) {
                abort();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    return 0;
}
