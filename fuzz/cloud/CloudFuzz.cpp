// Feeds arbitrary bytes to the cloud's parsers of outside input through its
// ingestion entry points, over an in-memory store that holds one device and
// one open session "c" of 4 elements: as an event body (first byte odd) or
// as an upload document (first byte even). Any answer is fine; a crash, a
// sanitizer report or an answer outside the documented statuses is a
// finding.
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "CampaignCatalog.h"
#include "CloudStore.h"
#include "Ingestion.h"
#include "SessionController.h"
#include "WireFormat.h"

namespace {

using namespace vemo::cloud;

int64_t zeroClock() {
    return 0;
}

struct Cloud {
    Cloud() {
        store.registerDevices({{"t", "device"}, {"u", "other"}});
        RequestRecord member;
        member.deviceId = "device";
        member.requestId = "r";
        member.kind = "integral";
        member.name = "app";
        member.secondName = R"({"campaign_id":"camp"})";
        member.length = 4;
        member.publicKey = "pk";
        store.storeEvent("device", "m", "ns", "n", EventEffect::kRequest, &member, 0);
        SessionRecord session;
        session.sessionId = "c";
        session.campaignId = "camp";
        session.applicationId = "app";
        session.length = 4;
        session.deadlineMs = 1;
        store.createSession(session, store.waitingRequests(), {});
    }
    CloudStore store{":memory:"};
    CampaignCatalog catalog{""};
    SessionController controller{store, ControllerConfig{}, zeroClock};
    Ingestion ingestion{store, controller, catalog, zeroClock};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Cloud* cloud = new Cloud();
    if (size == 0) {
        return 0;
    }
    const std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Answer answer =
        (data[0] & 1) ? cloud->ingestion.event("t", body) : cloud->ingestion.upload("t", body);
    switch (answer.status) {
        case 200:
        case 400:
        case 404:
        case 409:
        case 413:
        case 503:
            break;
        default:
            abort();
    }
    std::string campaignId;
    WireFormat::campaignIdOf(body, campaignId);
    return 0;
}
