#pragma once
// Pairwise masking. For a member u and each neighbour v, a 16-byte seed is
// HKDF-SHA256(X25519(sk_u, pk_v), salt = transcript hash, info =
// "vemo-secagg/v1/pair" || min(pk_u, pk_v) || max(pk_u, pk_v)); it is the key
// of an AES-128-CTR keystream (zero IV) read as little-endian uint32 words. The
// member with the smaller key adds the words, the other subtracts them, so the
// masks cancel in the cohort's sum modulo 2^32.
//
// A Masker fetches the cipher and KDF once; its const operations may run on
// several threads at once. Secrets it derives are wiped before it returns.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "secagg/KeyPair.h"
#include "secagg/Types.h"

typedef struct evp_cipher_st EVP_CIPHER;
typedef struct evp_kdf_st EVP_KDF;

namespace secagg {

enum class MaskResult {
    Ok,
    // OpenSSL refused an agreement (a small-order neighbour key).
    AgreementFailed,
    // The own public key among the neighbours: its mask could not cancel.
    OwnKeyListed,
    // Any other OpenSSL failure.
    CryptoFailed,
};

class Masker {
  public:
    // Throws std::runtime_error when OpenSSL lacks AES-128-CTR or HKDF.
    Masker();
    ~Masker();
    Masker(const Masker&) = delete;
    Masker& operator=(const Masker&) = delete;

    MaskResult pairSeed(const KeyPair& own, const PublicKey& peer, const Digest& transcript,
                        PairSeed& seed) const;

    // Adds (or, when `subtract`, subtracts) the pair's mask words to `words`.
    bool applyPairMask(const PairSeed& seed, bool subtract, uint32_t* words, size_t count) const;

    // Masks `words` in place for `own` against every neighbour. On failure
    // `words` holds partial masks and must be discarded.
    MaskResult mask(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                    const Digest& transcript, uint32_t* words, size_t count) const;
    // The inverse of mask with the same arguments (tests and checks).
    MaskResult unmask(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                      const Digest& transcript, uint32_t* words, size_t count) const;

  private:
    MaskResult apply(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                     const Digest& transcript, bool invert, uint32_t* words, size_t count) const;

    EVP_CIPHER* cipher_ = nullptr;
    EVP_KDF* kdf_ = nullptr;
};

}  // namespace secagg
