#pragma once
// The participation request: the text a device's core returns from an
// initiate call, which the daemon sends to the cloud and the cloud groups
// into sessions. It names the request and carries the request's fresh public
// key; nothing in it is derived from the data being masked.
//
// Plain value type; the functions are stateless and safe on any thread.

#include <cstdint>
#include <string>
#include <vector>

#include "secagg/Types.h"

namespace secagg {

struct ParticipationRequest {
    Kind kind = Kind::Integral;
    RequestId requestId{};
    // Integral: the request name and second name. FLGR: the application id
    // and the metadata.
    std::string name;
    std::string secondName;
    // Elements to be masked (integral: including the checksum; FLGR: floats).
    uint32_t length = 0;
    std::vector<uint32_t> stages{kStagePairwise};
    std::vector<std::string> prgs{kPrgAes128Ctr};
    PublicKey publicKey{};
    // FLGR only: the factor applied before rounding to int32.
    float scale = 0.0f;
};

// Compact JSON, members in a fixed order; "scale" only for FLGR. False when
// the request cannot be written (a non-finite scale).
bool writeParticipationRequest(const ParticipationRequest& request, std::string& out);

// Strict: the text must be one JSON object with exactly the members a request
// of its kind carries, each of its type, "v" 1 and "type"
// "participation_request"; ids and keys must decode to their sizes, "stages"
// and "prg" must be non-empty. On failure returns false with a short reason
// in `error` (which is never derived from secrets).
bool parseParticipationRequest(const std::string& text, ParticipationRequest& out,
                               std::string& error);

}  // namespace secagg
