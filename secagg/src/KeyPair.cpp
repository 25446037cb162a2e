#include "secagg/KeyPair.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <stdexcept>

namespace secagg {

namespace {

struct CtxDeleter {
    void operator()(EVP_PKEY_CTX* ctx) const { EVP_PKEY_CTX_free(ctx); }
};
struct PeerDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

}  // namespace

void KeyPair::KeyDeleter::operator()(EVP_PKEY* key) const {
    // Frees and clears the private key.
    EVP_PKEY_free(key);
}

KeyPair::KeyPair(EVP_PKEY* key) : key_(key) {
    size_t size = publicKey_.size();
    if (EVP_PKEY_get_raw_public_key(key, publicKey_.data(), &size) != 1 ||
        size != publicKey_.size()) {
        throw std::runtime_error("X25519 public key unavailable");
    }
}

KeyPair::KeyPair(KeyPair&&) noexcept = default;
KeyPair& KeyPair::operator=(KeyPair&&) noexcept = default;
KeyPair::~KeyPair() = default;

KeyPair KeyPair::generate() {
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519");
    if (key == nullptr) {
        throw std::runtime_error("X25519 key generation failed");
    }
    std::unique_ptr<EVP_PKEY, KeyDeleter> owned(key);
    KeyPair pair(owned.get());
    owned.release();
    return pair;
}

KeyPair KeyPair::fromPrivateKey(const std::array<uint8_t, kPrivateKeySize>& privateKey) {
    EVP_PKEY* key = EVP_PKEY_new_raw_private_key_ex(nullptr, "X25519", nullptr, privateKey.data(),
                                                    privateKey.size());
    if (key == nullptr) {
        throw std::runtime_error("X25519 private key refused");
    }
    std::unique_ptr<EVP_PKEY, KeyDeleter> owned(key);
    KeyPair pair(owned.get());
    owned.release();
    return pair;
}

bool KeyPair::agree(const PublicKey& peer, std::array<uint8_t, 32>& sharedSecret) const {
    std::unique_ptr<EVP_PKEY, PeerDeleter> peerKey(
        EVP_PKEY_new_raw_public_key_ex(nullptr, "X25519", nullptr, peer.data(), peer.size()));
    if (!peerKey) {
        return false;
    }
    std::unique_ptr<EVP_PKEY_CTX, CtxDeleter> ctx(
        EVP_PKEY_CTX_new_from_pkey(nullptr, key_.get(), nullptr));
    size_t size = sharedSecret.size();
    // OpenSSL refuses an all-zero secret, which any small-order peer key gives.
    const bool ok = ctx && EVP_PKEY_derive_init(ctx.get()) == 1 &&
                    EVP_PKEY_derive_set_peer(ctx.get(), peerKey.get()) == 1 &&
                    EVP_PKEY_derive(ctx.get(), sharedSecret.data(), &size) == 1 &&
                    size == sharedSecret.size();
    if (!ok) {
        OPENSSL_cleanse(sharedSecret.data(), sharedSecret.size());
    }
    return ok;
}

}  // namespace secagg
