#pragma once
// The mask directive: the cloud's answer to one participation request, which
// names the session, repeats the request's texts and lists the public keys of
// the peers the device masks with (never its own).
//
// Plain value type; the functions are stateless and safe on any thread.

#include <cstdint>
#include <string>
#include <vector>

#include "secagg/Types.h"

namespace secagg {

struct MaskDirective {
    RequestId requestId{};
    SessionId sessionId{};
    uint32_t stage = kStagePairwise;
    std::string prg = kPrgAes128Ctr;
    Kind kind = Kind::Integral;
    std::string name;
    std::string secondName;
    uint32_t length = 0;
    // Echoed into the masked result, so the upload names its session.
    std::string cohortId;
    std::vector<PublicKey> neighbours;
};

// Compact JSON, members in a fixed order.
std::string writeMaskDirective(const MaskDirective& directive);

enum class DirectiveParse {
    Ok,
    // Not JSON, not an object, an unknown or missing member, a wrong type or
    // value, or an id or key that does not decode to its size.
    Malformed,
    // More neighbours than the caller accepts; none of them was decoded.
    TooManyNeighbours,
};

// Strict, as for the participation request. On failure `requestIdRead` tells
// whether `out.requestId` was read (a directive that names a request and is
// then refused still uses that request up), and `error` holds a short reason.
DirectiveParse parseMaskDirective(const std::string& text, MaskDirective& out, std::string& error,
                                  bool& requestIdRead, size_t maxNeighbours);

}  // namespace secagg
