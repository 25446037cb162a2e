#include "secagg/Masker.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace secagg {

namespace {

// Keystream is made and added in slices that stay in L1 beside the data.
constexpr size_t kChunkWords = 1024;
constexpr char kPairLabel[] = "vemo-secagg/v1/pair";

struct CipherCtxDeleter {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxDeleter>;

struct KdfCtxDeleter {
    void operator()(EVP_KDF_CTX* ctx) const { EVP_KDF_CTX_free(ctx); }
};

// The keystream's words are little-endian. On a little-endian machine they
// are read as they lie, which the compiler vectorises; elsewhere byte by byte.
const bool kLittleEndian = [] {
    const uint32_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}();

inline uint32_t littleEndianWord(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

template <bool kSubtract>
void addWords(uint32_t* words, size_t count, const unsigned char* keystream) {
    if (kLittleEndian) {
        for (size_t i = 0; i < count; ++i) {
            uint32_t w;
            std::memcpy(&w, keystream + 4 * i, sizeof w);
            words[i] = kSubtract ? words[i] - w : words[i] + w;
        }
    } else {
        for (size_t i = 0; i < count; ++i) {
            const uint32_t w = littleEndianWord(keystream + 4 * i);
            words[i] = kSubtract ? words[i] - w : words[i] + w;
        }
    }
}

// One pair's keystream: AES-128-CTR keyed by the pair's 16 bytes, counter from zero.
CipherCtx startStream(const EVP_CIPHER* cipher, const PairSeed& seed) {
    static const unsigned char kZeroIv[16] = {};
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    if (ctx && EVP_EncryptInit_ex2(ctx.get(), cipher, seed.data(), kZeroIv, nullptr) != 1) {
        ctx.reset();
    }
    return ctx;
}

// Adds (or subtracts) the next `count` words of the stream into `words`.
bool addStream(EVP_CIPHER_CTX* ctx, bool subtract, uint32_t* words, size_t count,
               unsigned char* keystream) {
    static const unsigned char kZeros[kChunkWords * 4] = {};
    int produced = 0;
    if (EVP_EncryptUpdate(ctx, keystream, &produced, kZeros, static_cast<int>(count * 4)) != 1 ||
        produced != static_cast<int>(count * 4)) {
        return false;
    }
    if (subtract) {
        addWords<true>(words, count, keystream);
    } else {
        addWords<false>(words, count, keystream);
    }
    return true;
}

}  // namespace

Masker::Masker()
    : cipher_(EVP_CIPHER_fetch(nullptr, "AES-128-CTR", nullptr)),
      kdf_(EVP_KDF_fetch(nullptr, "HKDF", nullptr)) {
    if (cipher_ == nullptr || kdf_ == nullptr) {
        EVP_CIPHER_free(cipher_);
        EVP_KDF_free(kdf_);
        throw std::runtime_error("AES-128-CTR or HKDF unavailable");
    }
}

Masker::~Masker() {
    EVP_CIPHER_free(cipher_);
    EVP_KDF_free(kdf_);
}

MaskResult Masker::pairSeed(const KeyPair& own, const PublicKey& peer, const Digest& transcript,
                            PairSeed& seed) const {
    std::array<uint8_t, 32> secret{};
    if (!own.agree(peer, secret)) {
        return MaskResult::AgreementFailed;
    }
    const PublicKey& mine = own.publicKey();
    const bool mineFirst = mine < peer;
    unsigned char info[sizeof kPairLabel - 1 + 2 * kPublicKeySize];
    std::memcpy(info, kPairLabel, sizeof kPairLabel - 1);
    std::memcpy(info + sizeof kPairLabel - 1, (mineFirst ? mine : peer).data(), kPublicKeySize);
    std::memcpy(info + sizeof kPairLabel - 1 + kPublicKeySize, (mineFirst ? peer : mine).data(),
                kPublicKeySize);

    std::unique_ptr<EVP_KDF_CTX, KdfCtxDeleter> ctx(EVP_KDF_CTX_new(kdf_));
    char digest[] = "SHA256";
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, secret.data(), secret.size()),
        OSSL_PARAM_construct_octet_string(
            OSSL_KDF_PARAM_SALT, const_cast<uint8_t*>(transcript.data()), transcript.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info, sizeof info),
        OSSL_PARAM_construct_end(),
    };
    const bool ok = ctx && EVP_KDF_derive(ctx.get(), seed.data(), seed.size(), params) == 1;
    OPENSSL_cleanse(secret.data(), secret.size());
    if (!ok) {
        OPENSSL_cleanse(seed.data(), seed.size());
        return MaskResult::CryptoFailed;
    }
    return MaskResult::Ok;
}

bool Masker::applyPairMask(const PairSeed& seed, bool subtract, uint32_t* words,
                           size_t count) const {
    CipherCtx ctx = startStream(cipher_, seed);
    if (!ctx) {
        return false;
    }
    unsigned char keystream[kChunkWords * 4];
    bool ok = true;
    for (size_t done = 0; ok && done < count; done += kChunkWords) {
        ok = addStream(ctx.get(), subtract, words + done, std::min(kChunkWords, count - done),
                       keystream);
    }
    OPENSSL_cleanse(keystream, sizeof keystream);
    return ok;
}

MaskResult Masker::mask(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                        const Digest& transcript, uint32_t* words, size_t count) const {
    return apply(own, neighbours, transcript, false, words, count);
}

MaskResult Masker::unmask(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                          const Digest& transcript, uint32_t* words, size_t count) const {
    return apply(own, neighbours, transcript, true, words, count);
}

MaskResult Masker::apply(const KeyPair& own, const std::vector<PublicKey>& neighbours,
                         const Digest& transcript, bool invert, uint32_t* words,
                         size_t count) const {
    // All streams run side by side, so each slice of the data is loaded once
    // and every pair's words are added while it sits in L1.
    std::vector<CipherCtx> streams;
    std::vector<bool> subtract;
    streams.reserve(neighbours.size());
    for (const PublicKey& peer : neighbours) {
        if (peer == own.publicKey()) {
            return MaskResult::OwnKeyListed;
        }
        PairSeed seed{};
        const MaskResult result = pairSeed(own, peer, transcript, seed);
        if (result != MaskResult::Ok) {
            return result;
        }
        streams.push_back(startStream(cipher_, seed));
        OPENSSL_cleanse(seed.data(), seed.size());
        if (!streams.back()) {
            return MaskResult::CryptoFailed;
        }
        subtract.push_back((own.publicKey() > peer) != invert);
    }
    unsigned char keystream[kChunkWords * 4];
    bool ok = true;
    for (size_t done = 0; ok && done < count; done += kChunkWords) {
        const size_t n = std::min(kChunkWords, count - done);
        for (size_t s = 0; ok && s < streams.size(); ++s) {
            ok = addStream(streams[s].get(), subtract[s], words + done, n, keystream);
        }
    }
    OPENSSL_cleanse(keystream, sizeof keystream);
    return ok ? MaskResult::Ok : MaskResult::CryptoFailed;
}

}  // namespace secagg
