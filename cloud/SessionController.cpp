#include "SessionController.h"

#include <openssl/rand.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <map>
#include <set>
#include <tuple>

#include <secagg/Base64Url.h>
#include <secagg/Checksum.h>
#include <secagg/MaskDirective.h>
#include <secagg/NeighbourGraph.h>

#include "WireFormat.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace cloud {

namespace {

const VemoLogger logger("SessionController");

template <size_t N>
std::array<uint8_t, N> randomBytes() {
    std::array<uint8_t, N> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(N)) != 1) {
        throw std::runtime_error("RAND_bytes failed");
    }
    return bytes;
}

std::string randomUuid() {
    auto b = randomBytes<16>();
    b[6] = static_cast<uint8_t>((b[6] & 0x0f) | 0x40);
    b[8] = static_cast<uint8_t>((b[8] & 0x3f) | 0x80);
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < b.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            out += '-';
        }
        out += hex[b[i] >> 4];
        out += hex[b[i] & 0xf];
    }
    return out;
}

}  // namespace

SessionController::SessionController(CloudStore& store, ControllerConfig config,
                                     std::function<int64_t()> clockMs)
    : store_(store), config_(config), clockMs_(std::move(clockMs)) {}

SessionController::~SessionController() {
    stop();
}

void SessionController::start() {
    std::lock_guard<std::mutex> lock(wakeMutex_);
    if (!thread_.joinable()) {
        stopping_ = false;
        thread_ = std::thread([this] { run(); });
    }
}

void SessionController::stop() {
    {
        std::lock_guard<std::mutex> lock(wakeMutex_);
        stopping_ = true;
    }
    wakeCv_.notify_all();
    directivesCv_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void SessionController::wake() {
    {
        std::lock_guard<std::mutex> lock(wakeMutex_);
        wakeRequested_ = true;
    }
    wakeCv_.notify_all();
}

void SessionController::run() {
    std::unique_lock<std::mutex> lock(wakeMutex_);
    while (!stopping_) {
        lock.unlock();
        try {
            tick();
        } catch (const std::exception& e) {
            // A database failure must not end the controller: the next tick
            // retries what this one could not do.
            logger.e("%s:tick failed: %s", "run", e.what());
        }
        lock.lock();
        wakeCv_.wait_for(lock, std::chrono::milliseconds(config_.tickMs),
                         [this] { return stopping_ || wakeRequested_; });
        wakeRequested_ = false;
    }
}

size_t SessionController::tick() {
    std::lock_guard<std::mutex> tickLock(tickMutex_);
    const int64_t now = clockMs_();

    // Group the waiting requests, keeping arrival order within each group.
    using Key = std::tuple<std::string, std::string, std::string, uint32_t>;
    std::map<Key, std::vector<RequestRecord>> groups;
    std::vector<Key> order;
    for (auto& request : store_.waitingRequests()) {
        if (request.kind != "integral") {
            continue;
        }
        Key key{request.kind, request.name, request.secondName, request.length};
        auto& group = groups[key];
        if (group.empty()) {
            order.push_back(key);
        }
        group.push_back(std::move(request));
    }
    size_t formed = 0;
    for (const Key& key : order) {
        // One request per device and session; the device's later requests
        // wait for a later session.
        std::vector<RequestRecord> eligible;
        std::set<std::string> seen;
        for (auto& request : groups[key]) {
            if (seen.insert(request.deviceId).second) {
                eligible.push_back(std::move(request));
            }
        }
        size_t first = 0;
        while (eligible.size() - first >= config_.maxCohort) {
            formSession({eligible.begin() + first, eligible.begin() + first + config_.maxCohort},
                        now);
            first += config_.maxCohort;
            ++formed;
        }
        const size_t left = eligible.size() - first;
        if (left >= config_.minCohort && left > 0 &&
            now - eligible[first].receivedMs >= config_.cohortWindowMs) {
            formSession({eligible.begin() + first, eligible.end()}, now);
            ++formed;
        }
    }

    for (const auto& session : store_.openSessions()) {
        const auto members = store_.members(session.sessionId);
        size_t uploaded = 0;
        for (const auto& m : members) {
            uploaded += m.uploaded ? 1 : 0;
        }
        if (!members.empty() && uploaded == members.size()) {
            finish(session.sessionId);
        } else if (now >= session.deadlineMs) {
            const std::string reason = "deadline passed with " + std::to_string(uploaded) + " of " +
                                       std::to_string(members.size()) + " members uploaded";
            if (store_.failSession(session.sessionId, reason)) {
                logger.w("%s:session %s failed: %s", "tick", session.sessionId.c_str(),
                         reason.c_str());
            }
        }
    }
    return formed;
}

void SessionController::formSession(const std::vector<RequestRecord>& members, int64_t nowMs) {
    const RequestRecord& head = members.front();
    SessionRecord session;
    const secagg::SessionId sessionId = randomBytes<secagg::kSessionIdSize>();
    session.sessionId = secagg::base64UrlEncode(sessionId);
    WireFormat::campaignIdOf(head.secondName, session.campaignId);
    session.applicationId = head.name;
    session.length = head.length;
    session.createdMs = nowMs;
    session.deadlineMs = nowMs + config_.sessionDeadlineMs;

    std::vector<secagg::PublicKey> keys(members.size());
    std::vector<secagg::RequestId> requestIds(members.size());
    for (size_t i = 0; i < members.size(); ++i) {
        // Both were checked when the request arrived.
        secagg::base64UrlDecodeFixed(members[i].publicKey, keys[i]);
        secagg::base64UrlDecodeFixed(members[i].requestId, requestIds[i]);
    }
    const auto graph = secagg::neighbourGraph(members.size(), config_.neighbours);
    std::vector<NewDirective> directives;
    for (size_t i = 0; i < members.size(); ++i) {
        secagg::MaskDirective mask;
        mask.requestId = requestIds[i];
        mask.sessionId = sessionId;
        mask.kind = secagg::Kind::Integral;
        mask.name = head.name;
        mask.secondName = head.secondName;
        mask.length = head.length;
        mask.cohortId = session.sessionId;
        for (const size_t peer : graph[i]) {
            mask.neighbours.push_back(keys[peer]);
        }
        DirectiveHeader header{kNamespace, kDirectiveName, randomUuid(), "1",
                               members[i].eventMessageId};
        directives.push_back(
            {members[i].deviceId,
             WireFormat::writeDirective(header,
                                        "{\"payload\":" + secagg::writeMaskDirective(mask) + "}")});
    }
    store_.createSession(session, members, directives);
    logger.i("%s:session %s formed for %s with %zu members", "formSession",
             session.sessionId.c_str(), session.applicationId.c_str(), members.size());
    {
        std::lock_guard<std::mutex> lock(wakeMutex_);
        ++directiveGeneration_;
    }
    directivesCv_.notify_all();
}

bool SessionController::finish(const std::string& sessionId) {
    const auto session = store_.session(sessionId);
    if (!session || session->state != SessionState::kOpen) {
        return false;
    }
    std::vector<uint32_t> sum(session->length, 0);
    for (const auto& bytes : store_.sessionVectors(sessionId)) {
        std::vector<uint32_t> words;
        std::string error;
        if (bytes.size() != sum.size() * 4) {
            store_.failSession(sessionId, "a stored vector has the wrong length");
            return false;
        }
        words.resize(sum.size());
        std::memcpy(words.data(), bytes.data(), bytes.size());
        for (auto& w : words) {
            // Stored little-endian; no-op on little-endian hosts.
            const auto* b = reinterpret_cast<const unsigned char*>(&w);
            w = uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
        }
        secagg::addInto(sum.data(), words.data(), sum.size());
    }
    if (!secagg::checksumHolds(sum.data(), sum.size())) {
        if (store_.failSession(sessionId, kChecksumReason)) {
            logger.e("%s:session %s failed: %s", "finish", sessionId.c_str(), kChecksumReason);
        }
        return false;
    }
    sum.pop_back();
    if (!store_.completeSession(sessionId, sum)) {
        logger.e("%s:session %s not published", "finish", sessionId.c_str());
        return false;
    }
    logger.i("%s:session %s complete for %s", "finish", sessionId.c_str(),
             session->applicationId.c_str());
    return true;
}

std::vector<DirectiveRecord> SessionController::waitForDirectives(const std::string& deviceId,
                                                                  int64_t after,
                                                                  int64_t timeoutMs) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        uint64_t generation;
        {
            std::lock_guard<std::mutex> lock(wakeMutex_);
            generation = directiveGeneration_;
        }
        auto list = store_.directivesAfter(deviceId, after, kMaxDirectivesPerPoll);
        std::unique_lock<std::mutex> lock(wakeMutex_);
        if (!list.empty() || stopping_ || std::chrono::steady_clock::now() >= until) {
            return list;
        }
        directivesCv_.wait_until(lock, until,
                                 [&] { return stopping_ || directiveGeneration_ != generation; });
    }
}

}  // namespace cloud
}  // namespace vemo
