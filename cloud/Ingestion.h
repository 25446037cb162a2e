#pragma once
// The device-facing side: accepts events (capability announcements and
// participation requests) and masked-vector uploads, checks them against
// the device registry and the sessions, stores what is valid and answers
// with the HTTP status the device expects. Nothing is stored for a refused
// request.
//
// Events: 200 stored, 400 malformed, 401 unknown token, 409 repeated message
// id (or a replayed request id), 503 too many requests waiting.
// Uploads: 200 stored or an identical repeat, 400 malformed or inconsistent
// with the session, 401 unknown token, 404 unknown session or not a member,
// 409 a different vector from a member that uploaded, or a session already
// closed.
//
// Thread-safe (the store and the controller serialise themselves).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "CampaignCatalog.h"
#include "CloudStore.h"
#include "SessionController.h"

namespace vemo {
namespace cloud {

struct Answer {
    int status = 500;
    std::string body;
};

class Ingestion {
  public:
    static constexpr size_t kMaxEventBytes = size_t{1} << 20;
    // Waiting requests beyond this are refused with 503 until sessions form.
    static constexpr int64_t kMaxWaitingRequests = 100000;
    // The longest vector a campaign can define, plus its checksum.
    static constexpr uint32_t kMaxVectorLength = (uint32_t{1} << 24) + 1;

    Ingestion(CloudStore& store, SessionController& controller, const CampaignCatalog& catalog,
              std::function<int64_t()> clockMs);

    // `token` is the x-qzt-access-token header ("" when absent).
    Answer event(const std::string& token, const std::string& body);
    Answer upload(const std::string& token, const std::string& body);

  private:
    CloudStore& store_;
    SessionController& controller_;
    const CampaignCatalog& catalog_;
    const std::function<int64_t()> clockMs_;
};

}  // namespace cloud
}  // namespace vemo
