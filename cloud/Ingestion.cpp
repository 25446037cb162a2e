#include "Ingestion.h"

#include <algorithm>
#include <vector>

#include <secagg/Base64Url.h>
#include <secagg/ParticipationRequest.h>

#include "WireFormat.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace cloud {

namespace {

const VemoLogger logger("Ingestion");

constexpr const char* kDiscoveryNamespace = "Tolmo.Discovery";
constexpr const char* kAnnouncementName = "AddOrUpdateReport";
constexpr const char* kRequestName = "ParticipationRequest";

Answer refuse(int status, const std::string& error) {
    return {status, WireFormat::writeError(error)};
}

const Answer kUnknownToken{401, WireFormat::writeError("unknown access token")};

std::string packLittleEndian(const std::vector<uint32_t>& words) {
    std::string bytes(words.size() * 4, '\0');
    for (size_t i = 0; i < words.size(); ++i) {
        for (int k = 0; k < 4; ++k) {
            bytes[4 * i + k] = static_cast<char>((words[i] >> (8 * k)) & 0xffu);
        }
    }
    return bytes;
}

}  // namespace

Ingestion::Ingestion(CloudStore& store, SessionController& controller,
                     const CampaignCatalog& catalog, std::function<int64_t()> clockMs)
    : store_(store), controller_(controller), catalog_(catalog), clockMs_(std::move(clockMs)) {}

Answer Ingestion::event(const std::string& token, const std::string& body) {
    const auto device = token.empty() ? std::nullopt : store_.deviceForToken(token);
    if (!device) {
        return kUnknownToken;
    }
    if (body.size() > kMaxEventBytes) {
        return refuse(413, "event larger than 1 MiB");
    }
    EventDocument doc;
    std::string error;
    if (!WireFormat::parseEvent(body.data(), body.size(), doc, error)) {
        return refuse(400, error);
    }
    EventEffect effect = EventEffect::kNone;
    RequestRecord request;
    if (doc.eventNamespace == kDiscoveryNamespace && doc.name == kAnnouncementName) {
        effect = EventEffect::kAnnouncement;
    } else if (doc.eventNamespace == SessionController::kNamespace && doc.name == kRequestName) {
        secagg::ParticipationRequest parsed;
        if (!secagg::parseParticipationRequest(doc.payload, parsed, error)) {
            return refuse(400, "participation request: " + error);
        }
        if (parsed.kind == secagg::Kind::Integral) {
            if (std::find(parsed.stages.begin(), parsed.stages.end(), secagg::kStagePairwise) ==
                    parsed.stages.end() ||
                std::find(parsed.prgs.begin(), parsed.prgs.end(), secagg::kPrgAes128Ctr) ==
                    parsed.prgs.end()) {
                return refuse(400, "participation request offers no stage and generator we run");
            }
            std::string campaignId;
            if (!WireFormat::campaignIdOf(parsed.secondName, campaignId)) {
                return refuse(400, "participation request: second_name is not vector metadata");
            }
            if (parsed.length < 2 || parsed.length > kMaxVectorLength) {
                return refuse(400, "participation request: length out of range");
            }
            if (const auto layout = catalog_.find(campaignId)) {
                if (parsed.length != layout->vectorLength + 1) {
                    return refuse(400, "participation request: length " +
                                           std::to_string(parsed.length) + " but campaign " +
                                           campaignId + " has vectors of " +
                                           std::to_string(layout->vectorLength + 1));
                }
            }
            if (store_.waitingRequestCount() >= kMaxWaitingRequests) {
                return refuse(503, "too many requests waiting for a session");
            }
            effect = EventEffect::kRequest;
            request.deviceId = *device;
            request.requestId = secagg::base64UrlEncode(parsed.requestId);
            request.kind = secagg::kindName(parsed.kind);
            request.name = parsed.name;
            request.secondName = parsed.secondName;
            request.length = parsed.length;
            request.publicKey = secagg::base64UrlEncode(parsed.publicKey);
        } else {
            // Devices drop their masked gradients, so no session of them
            // could complete: recorded, not grouped.
            logger.i("%s:gradient request from %s recorded, not aggregated", "event",
                     device->c_str());
        }
    }
    const auto outcome =
        store_.storeEvent(*device, doc.messageId, doc.eventNamespace, doc.name, effect,
                          effect == EventEffect::kRequest ? &request : nullptr, clockMs_());
    if (outcome == EventOutcome::kDuplicate) {
        return refuse(409, "already received");
    }
    if (effect == EventEffect::kRequest) {
        controller_.wake();
    }
    return {200, WireFormat::writeAccepted(doc.messageId)};
}

Answer Ingestion::upload(const std::string& token, const std::string& body) {
    const auto device = token.empty() ? std::nullopt : store_.deviceForToken(token);
    if (!device) {
        return kUnknownToken;
    }
    UploadDocument doc;
    std::string error;
    if (!WireFormat::parseUpload(body.data(), body.size(), doc, error)) {
        return refuse(400, error);
    }
    const auto session = store_.session(doc.cohortId);
    if (!session) {
        return refuse(404, "unknown session");
    }
    if (doc.applicationId != session->applicationId || doc.campaignId != session->campaignId) {
        return refuse(400, "campaign or application id differs from the session's");
    }
    std::vector<uint32_t> words;
    if (!WireFormat::decodeVector(doc.vector, doc.bigEndian, session->length, words, error)) {
        return refuse(400, error);
    }
    const UploadResult result = store_.storeUpload(doc.cohortId, *device, packLittleEndian(words));
    switch (result.outcome) {
        case UploadOutcome::kNotMember:
            return refuse(404, "the device is not a member of this session");
        case UploadOutcome::kConflict:
            return refuse(409, "a different vector was uploaded before");
        case UploadOutcome::kClosed:
            return refuse(409, "the session is closed");
        case UploadOutcome::kStored:
        case UploadOutcome::kRepeat:
            break;
    }
    if (result.full) {
        controller_.finish(doc.cohortId);
    }
    return {200, "{}"};
}

}  // namespace cloud
}  // namespace vemo
