// Known answers for the key schedule and the mask generator, so that the bytes
// both sides rely on cannot drift. Each constant is also recomputed here
// through a different OpenSSL route than the library's.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <cstdio>
#include <string>

#include "secagg/Base64Url.h"
#include "secagg/Masker.h"
#include "secagg/Transcript.h"

namespace secagg {
namespace {

std::string hex(const uint8_t* data, size_t size) {
    std::string out;
    char digits[3];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(digits, sizeof digits, "%02x", data[i]);
        out += digits;
    }
    return out;
}
template <typename Bytes>
std::string hex(const Bytes& bytes) {
    return hex(bytes.data(), bytes.size());
}

std::array<uint8_t, 32> filled(uint8_t first) {
    std::array<uint8_t, 32> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

MaskDirective fixedDirective() {
    MaskDirective d;
    d.sessionId = filled(0xa0);
    d.kind = Kind::Integral;
    d.name = "UnifiedSensingService_en-US_c1";
    d.secondName = R"({"campaign_id":"c1"})";
    d.length = 5;
    return d;
}

void lengthPrefixed(std::string& out, const std::string& field) {
    const uint32_t n = static_cast<uint32_t>(field.size());
    for (int shift = 0; shift < 32; shift += 8) {
        out += static_cast<char>((n >> shift) & 0xff);
    }
    out += field;
}

std::string independentTranscript(const MaskDirective& d) {
    std::string bytes;
    lengthPrefixed(bytes, "vemo-secagg/v1");
    lengthPrefixed(bytes, std::string(d.sessionId.begin(), d.sessionId.end()));
    for (const std::string& field :
         {std::string("1"), std::string("aes128ctr"), std::string("integral"), std::string("5"),
          d.name, d.secondName}) {
        lengthPrefixed(bytes, field);
    }
    Digest digest{};
    EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return hex(digest);
}

// X25519 from b's side, HKDF through the EVP_PKEY interface.
std::string independentSeed(const std::array<uint8_t, 32>& skB, const PublicKey& pkA,
                            const Digest& transcript) {
    EVP_PKEY* own = EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, skB.data(), 32);
    EVP_PKEY* peer = EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, pkA.data(), 32);
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(own, nullptr);
    uint8_t secret[32];
    size_t secretSize = sizeof secret;
    EVP_PKEY_derive_init(ctx);
    EVP_PKEY_derive_set_peer(ctx, peer);
    EVP_PKEY_derive(ctx, secret, &secretSize);
    EVP_PKEY_CTX_free(ctx);

    uint8_t pkB[32];
    size_t pkSize = sizeof pkB;
    EVP_PKEY_get_raw_public_key(own, pkB, &pkSize);
    const std::string a(pkA.begin(), pkA.end());
    const std::string b(pkB, pkB + 32);
    const std::string info = "vemo-secagg/v1/pair" + std::min(a, b) + std::max(a, b);
    uint8_t seed[16];
    size_t seedSize = sizeof seed;
    EVP_PKEY_CTX* hkdf = EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr);
    EVP_PKEY_derive_init(hkdf);
    EVP_PKEY_CTX_set_hkdf_md(hkdf, EVP_sha256());
    EVP_PKEY_CTX_set1_hkdf_salt(hkdf, transcript.data(), 32);
    EVP_PKEY_CTX_set1_hkdf_key(hkdf, secret, 32);
    EVP_PKEY_CTX_add1_hkdf_info(hkdf, reinterpret_cast<const unsigned char*>(info.data()),
                                static_cast<int>(info.size()));
    EVP_PKEY_derive(hkdf, seed, &seedSize);
    EVP_PKEY_CTX_free(hkdf);
    EVP_PKEY_free(own);
    EVP_PKEY_free(peer);
    return hex(seed, sizeof seed);
}

// Eight mask words from the counter block `first` on: AES-128 of the counter
// blocks in ECB.
std::vector<uint32_t> independentWords(const PairSeed& seed, uint32_t first = 0) {
    uint8_t blocks[32] = {};
    for (int i = 0; i < 2; ++i) {
        const uint32_t counter = first + static_cast<uint32_t>(i);
        for (int j = 0; j < 4; ++j) {
            blocks[16 * i + 15 - j] = static_cast<uint8_t>(counter >> (8 * j));
        }
    }
    uint8_t stream[32];
    int n = 0;
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, seed.data(), nullptr);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    EVP_EncryptUpdate(ctx, stream, &n, blocks, 32);
    EVP_CIPHER_CTX_free(ctx);
    std::vector<uint32_t> words(8);
    for (size_t i = 0; i < words.size(); ++i) {
        words[i] = stream[4 * i] | stream[4 * i + 1] << 8 | stream[4 * i + 2] << 16 |
                   static_cast<uint32_t>(stream[4 * i + 3]) << 24;
    }
    return words;
}

TEST(KeyScheduleTest, FixedKeysGiveFixedTranscriptSeedAndMaskWords) {
    const auto skA = filled(0x01);
    const auto skB = filled(0x41);
    const KeyPair a = KeyPair::fromPrivateKey(skA);
    const KeyPair b = KeyPair::fromPrivateKey(skB);
    const MaskDirective d = fixedDirective();
    Masker masker;

    const Digest transcript = transcriptHash(d);
    PairSeed seedAB{};
    PairSeed seedBA{};
    ASSERT_EQ(MaskResult::Ok, masker.pairSeed(a, b.publicKey(), transcript, seedAB));
    ASSERT_EQ(MaskResult::Ok, masker.pairSeed(b, a.publicKey(), transcript, seedBA));
    // Long enough to cross the generator's internal slices.
    std::vector<uint32_t> maskedA(1100, 0);
    std::vector<uint32_t> maskedB(1100, 0);
    ASSERT_EQ(MaskResult::Ok, masker.mask(a, {b.publicKey()}, transcript, maskedA.data(), 1100));
    ASSERT_EQ(MaskResult::Ok, masker.mask(b, {a.publicKey()}, transcript, maskedB.data(), 1100));

    const char* kPkA = "B6N8vBQgk8i3VdwbEOhstCY3StFqqFPtC9_AsrhtHHw";
    const char* kTranscript = "fda2816aad14f5fca36ad5c2e20a01037fd5cae3c9c8d556138a61ac22add6b6";
    const char* kSeed = "77f45f467e9b7946d25777db521b38be";
    const std::vector<uint32_t> kWords = {536844723u, 542145483u, 99721585u,   397595538u,
                                          661107422u, 413664261u, 2951514874u, 1881869344u};

    EXPECT_EQ(kPkA, base64UrlEncode(a.publicKey()));
    EXPECT_EQ(kTranscript, hex(transcript));
    EXPECT_EQ(kTranscript, independentTranscript(d));
    EXPECT_EQ(kSeed, hex(seedAB));
    EXPECT_EQ(kSeed, hex(seedBA));
    EXPECT_EQ(kSeed, independentSeed(skB, a.publicKey(), transcript));
    EXPECT_EQ(kWords, independentWords(seedAB));
    // The smaller key adds the words, the larger subtracts them.
    const bool aAdds = a.publicKey() < b.publicKey();
    const std::vector<uint32_t> later = independentWords(seedAB, 256);
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(aAdds ? kWords[i] : 0u - kWords[i], maskedA[i]) << i;
        EXPECT_EQ(aAdds ? later[i] : 0u - later[i], maskedA[1024 + i]) << i;
    }
    for (size_t i = 0; i < maskedA.size(); ++i) {
        ASSERT_EQ(0u, maskedA[i] + maskedB[i]) << i;
    }
}

}  // namespace
}  // namespace secagg
