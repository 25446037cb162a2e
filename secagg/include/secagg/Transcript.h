#pragma once
// The transcript hash binds a pair's masks to one session and to the texts
// every member of it holds: SHA-256 over length-prefixed fields (4-byte
// little-endian length, then the bytes), in this order: "vemo-secagg/v1", the
// raw session id, the stage as decimal text, the generator's name, the kind's
// name, the length as decimal text, the name and the second name.
// Stateless; any thread.

#include "secagg/MaskDirective.h"
#include "secagg/Types.h"

namespace secagg {

// Throws std::runtime_error when OpenSSL fails.
Digest transcriptHash(const MaskDirective& directive);

}  // namespace secagg
