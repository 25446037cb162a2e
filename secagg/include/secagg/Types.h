#pragma once
// Fixed-size byte strings and names shared by every message and key of the
// secure-aggregation protocol. Plain values: copy them freely.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace secagg {

constexpr size_t kPublicKeySize = 32;
constexpr size_t kPrivateKeySize = 32;
constexpr size_t kSessionIdSize = 32;
constexpr size_t kRequestIdSize = 16;
constexpr size_t kPairSeedSize = 16;
constexpr size_t kDigestSize = 32;

// X25519 public key; ordered by byte comparison, which decides the sign of a
// pair's mask.
using PublicKey = std::array<uint8_t, kPublicKeySize>;
using SessionId = std::array<uint8_t, kSessionIdSize>;
using RequestId = std::array<uint8_t, kRequestIdSize>;
// The AES-128 key of one pair's mask stream.
using PairSeed = std::array<uint8_t, kPairSeedSize>;
using Digest = std::array<uint8_t, kDigestSize>;

// The only protocol version, stage and mask generator there are.
constexpr int kVersion = 1;
constexpr uint32_t kStagePairwise = 1;
constexpr const char* kPrgAes128Ctr = "aes128ctr";

// What a request masks: an analytics vector, or a gradient blob of float32
// values quantised to int32.
enum class Kind { Integral, Flgr };

// "integral" or "flgr".
const char* kindName(Kind kind);
// False for any other text.
bool kindFromName(const std::string& name, Kind& out);

}  // namespace secagg
