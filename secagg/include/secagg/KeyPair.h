#pragma once
// A request's X25519 key pair, held as an OpenSSL key; the private half never
// leaves it and is wiped by OpenSSL when the pair is destroyed.
//
// Move-only. Const operations may run on several threads at once.

#include <memory>

#include "secagg/Types.h"

typedef struct evp_pkey_st EVP_PKEY;

namespace secagg {

class KeyPair {
  public:
    // A fresh pair from OpenSSL's random source; throws std::runtime_error when
    // OpenSSL fails.
    static KeyPair generate();
    // A pair from fixed private bytes (known-answer tests, the cloud's tests
    // playing devices); throws std::runtime_error when OpenSSL refuses them.
    static KeyPair fromPrivateKey(const std::array<uint8_t, kPrivateKeySize>& privateKey);

    KeyPair(KeyPair&&) noexcept;
    KeyPair& operator=(KeyPair&&) noexcept;
    ~KeyPair();

    const PublicKey& publicKey() const { return publicKey_; }

    // X25519 with a peer's public key. False when OpenSSL refuses the
    // agreement (a small-order peer key gives an all-zero secret).
    bool agree(const PublicKey& peer, std::array<uint8_t, 32>& sharedSecret) const;

  private:
    explicit KeyPair(EVP_PKEY* key);

    struct KeyDeleter {
        void operator()(EVP_PKEY* key) const;
    };
    std::unique_ptr<EVP_PKEY, KeyDeleter> key_;
    PublicKey publicKey_{};
};

}  // namespace secagg
