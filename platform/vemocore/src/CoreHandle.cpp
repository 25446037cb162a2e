#include "CoreHandle.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "CoreLog.h"
#include "secagg/Base64Url.h"
#include "secagg/MaskDirective.h"
#include "secagg/ParticipationRequest.h"
#include "secagg/Transcript.h"

namespace vemocore {

namespace {

char* copyOut(const std::string& text) {
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    if (out != nullptr) {
        std::memcpy(out, text.data(), text.size() + 1);
    }
    return out;
}

// A short, non-secret name for log lines.
std::string shortId(const secagg::RequestId& id) {
    return secagg::base64UrlEncode(id).substr(0, 8);
}

}  // namespace

CoreHandle::CoreHandle(const CoreLimits& limits, void* userdata)
    : limits_(limits),
      userdata_(userdata),
      results_([this](const MaskedResult& result) { deliver(result); }) {}

CoreHandle::~CoreHandle() {
    // `results_` goes first (declared last), delivering what was queued; the
    // pending requests' keys and data are then wiped by their destructors.
}

void CoreHandle::setFlgrCallback(VemoFlgrResultCallback callback) {
    std::lock_guard<std::mutex> guard(lock_);
    flgrCallback_ = callback;
}

void CoreHandle::setIntegralCallback(VemoIntegralResultCallback callback) {
    std::lock_guard<std::mutex> guard(lock_);
    integralCallback_ = callback;
}

int CoreHandle::initiate(secagg::Kind kind, const char* name, const char* secondName,
                         SecretWords words, float scale, char** out) {
    static const char* const kFunction[] = {"vemoHandleIntegralInitiateNewRequest",
                                            "vemoHandleFlgrInitiateNewRequest"};
    const char* function = kFunction[kind == secagg::Kind::Flgr ? 1 : 0];
    auto request = std::unique_ptr<Pending>(
        new Pending{{}, kind, name, secondName, std::move(words), secagg::KeyPair::generate()});
    if (RAND_bytes(request->id.data(), static_cast<int>(request->id.size())) != 1) {
        coreLog(VEMO_LOG_ERROR, "%s:random source failed", function);
        return 4;
    }
    secagg::ParticipationRequest message;
    message.kind = kind;
    message.requestId = request->id;
    message.name = request->name;
    message.secondName = request->secondName;
    message.length = static_cast<uint32_t>(request->words.size());
    message.publicKey = request->keys.publicKey();
    message.scale = scale;
    std::string text;
    if (!secagg::writeParticipationRequest(message, text)) {
        coreLog(VEMO_LOG_ERROR, "%s:request could not be written", function);
        return 1;
    }
    // Freed here unless handed out, should the table's insertion throw.
    std::unique_ptr<char, decltype(&std::free)> copy(copyOut(text), &std::free);
    if (!copy) {
        coreLog(VEMO_LOG_ERROR, "%s:out of memory", function);
        return 1;
    }
    const std::string id = shortId(request->id);
    std::unique_ptr<Pending> evicted;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (pending_.size() >= limits_.capacity) {
            evicted = std::move(pending_.front());
            index_.erase(evicted->id);
            pending_.pop_front();
        }
        pending_.push_back(std::move(request));
        index_[pending_.back()->id] = std::prev(pending_.end());
    }
    *out = copy.release();
    if (evicted) {
        coreLog(VEMO_LOG_WARNING, "%s:request %s evicted for %s (capacity %u)", function,
                shortId(evicted->id).c_str(), id.c_str(), limits_.capacity);
        return 5;
    }
    coreLog(VEMO_LOG_DEBUG, "%s:request %s of %u elements pending", function, id.c_str(),
            message.length);
    return 0;
}

std::unique_ptr<CoreHandle::Pending> CoreHandle::take(const secagg::RequestId& id) {
    std::lock_guard<std::mutex> guard(lock_);
    const auto found = index_.find(id);
    if (found == index_.end()) {
        return nullptr;
    }
    std::unique_ptr<Pending> request = std::move(*found->second);
    pending_.erase(found->second);
    index_.erase(found);
    return request;
}

int CoreHandle::refusal(const Pending& request, const secagg::MaskDirective& directive) const {
    const char* reason = nullptr;
    std::vector<secagg::PublicKey> sorted = directive.neighbours;
    std::sort(sorted.begin(), sorted.end());
    if (directive.kind != request.kind || directive.name != request.name ||
        directive.secondName != request.secondName || directive.length != request.words.size()) {
        reason = "does not match the request";
    } else if (directive.stage != limits_.stage) {
        reason = "names an unsupported stage";
    } else if (directive.prg != secagg::kPrgAes128Ctr) {
        reason = "names an unsupported generator";
    } else if (directive.neighbours.size() < limits_.fewestNeighbours ||
               directive.neighbours.size() > limits_.mostNeighbours) {
        reason = "has a neighbour count out of bounds";
    } else if (std::binary_search(sorted.begin(), sorted.end(), request.keys.publicKey())) {
        reason = "lists the request's own key";
    } else if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        reason = "lists a neighbour twice";
    }
    if (reason == nullptr) {
        return 0;
    }
    coreLog(VEMO_LOG_ERROR, "%s:directive for request %s %s", "vemoHandleMask",
            shortId(request.id).c_str(), reason);
    return 3;
}

int CoreHandle::mask(const char* text) {
    secagg::MaskDirective directive;
    std::string error;
    bool named = false;
    const secagg::DirectiveParse parsed =
        secagg::parseMaskDirective(text, directive, error, named, limits_.mostNeighbours);
    std::unique_ptr<Pending> request = named ? take(directive.requestId) : nullptr;
    if (parsed != secagg::DirectiveParse::Ok) {
        const int code = parsed == secagg::DirectiveParse::TooManyNeighbours ? 3 : 1;
        coreLog(VEMO_LOG_ERROR, "%s:directive refused (%d): %s%s", "vemoHandleMask", code,
                error.c_str(), request ? "; its request is used up" : "");
        return code;
    }
    if (!request) {
        coreLog(VEMO_LOG_ERROR, "%s:request %s unknown, evicted or already used", "vemoHandleMask",
                shortId(directive.requestId).c_str());
        return 2;
    }
    if (const int code = refusal(*request, directive)) {
        return code;
    }
    const secagg::MaskResult masked =
        masker_.mask(request->keys, directive.neighbours, secagg::transcriptHash(directive),
                     request->words.data(), request->words.size());
    if (masked != secagg::MaskResult::Ok) {
        coreLog(VEMO_LOG_ERROR, "%s:key agreement for request %s failed", "vemoHandleMask",
                shortId(request->id).c_str());
        return 4;
    }
    MaskedResult result;
    result.kind = request->kind;
    result.name = request->name;
    result.secondName = request->secondName;
    result.cohortId = directive.cohortId;
    if (request->kind == secagg::Kind::Integral) {
        result.words = request->words.release();
    } else {
        const uint32_t* words = request->words.data();
        result.blob.resize(request->words.size() * 4);
        for (size_t i = 0; i < request->words.size(); ++i) {
            for (size_t b = 0; b < 4; ++b) {
                result.blob[4 * i + b] = static_cast<uint8_t>(words[i] >> (8 * b));
            }
        }
    }
    coreLog(VEMO_LOG_DEBUG, "%s:request %s masked with %zu neighbours", "vemoHandleMask",
            shortId(request->id).c_str(), directive.neighbours.size());
    results_.push(std::move(result));
    return 0;
}

void CoreHandle::deliver(const MaskedResult& result) {
    VemoFlgrResultCallback flgr;
    VemoIntegralResultCallback integral;
    {
        std::lock_guard<std::mutex> guard(lock_);
        flgr = flgrCallback_;
        integral = integralCallback_;
    }
    if (result.kind == secagg::Kind::Integral && integral != nullptr) {
        // int32_t may alias the words' uint32_t.
        integral(VemoIntegralResult{reinterpret_cast<const int32_t*>(result.words.data()),
                                    static_cast<uint32_t>(result.words.size()),
                                    result.secondName.c_str(), result.name.c_str(),
                                    result.cohortId.c_str()},
                 userdata_);
    } else if (result.kind == secagg::Kind::Flgr && flgr != nullptr) {
        flgr(
            VemoFlgrResult{result.blob.data(), static_cast<uint32_t>(result.blob.size()),
                           result.name.c_str(), result.secondName.c_str(), result.cohortId.c_str()},
            userdata_);
    } else {
        coreLog(VEMO_LOG_WARNING, "%s:no callback registered, result dropped", "deliver");
    }
}

}  // namespace vemocore
