// Known answers for the key schedule and the mask generator, so that the bytes
// both sides rely on cannot drift. The constants were computed once through
// other OpenSSL routes (a hand-built transcript with EVP_Digest, X25519 from
// the other side with HKDF through the EVP_PKEY interface, AES-128-ECB of the
// counter blocks).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "secagg/Base64Url.h"
#include "secagg/Masker.h"
#include "secagg/Transcript.h"

namespace secagg {
namespace {

template <typename Bytes>
std::string hex(const Bytes& bytes) {
    std::string out;
    char digits[3];
    for (uint8_t byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        out += digits;
    }
    return out;
}

std::array<uint8_t, 32> counting(uint8_t first) {
    std::array<uint8_t, 32> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

TEST(KeyScheduleTest, FixedKeysGiveFixedTranscriptSeedAndMaskWords) {
    const KeyPair a = KeyPair::fromPrivateKey(counting(0x01));
    const KeyPair b = KeyPair::fromPrivateKey(counting(0x41));
    MaskDirective d;
    d.sessionId = counting(0xa0);
    d.name = "UnifiedSensingService_en-US_c1";
    d.secondName = R"({"campaign_id":"c1"})";
    d.length = 5;
    const Digest transcript = transcriptHash(d);
    Masker masker;
    PairSeed seedAB{};
    PairSeed seedBA{};
    ASSERT_EQ(MaskResult::Ok, masker.pairSeed(a, b.publicKey(), transcript, seedAB));
    ASSERT_EQ(MaskResult::Ok, masker.pairSeed(b, a.publicKey(), transcript, seedBA));
    // Long enough to cross the generator's internal slices.
    std::vector<uint32_t> maskedA(1100, 0);
    std::vector<uint32_t> maskedB(1100, 0);
    ASSERT_EQ(MaskResult::Ok, masker.mask(a, {b.publicKey()}, transcript, maskedA.data(), 1100));
    ASSERT_EQ(MaskResult::Ok, masker.mask(b, {a.publicKey()}, transcript, maskedB.data(), 1100));

    EXPECT_EQ("B6N8vBQgk8i3VdwbEOhstCY3StFqqFPtC9_AsrhtHHw", base64UrlEncode(a.publicKey()));
    EXPECT_EQ("fda2816aad14f5fca36ad5c2e20a01037fd5cae3c9c8d556138a61ac22add6b6", hex(transcript));
    EXPECT_EQ("77f45f467e9b7946d25777db521b38be", hex(seedAB));
    EXPECT_EQ(seedAB, seedBA);
    // Words 0 to 7 and 1024 to 1031 (counter blocks 0, 1, 256 and 257).
    const uint32_t first[8] = {536844723u, 542145483u, 99721585u,   397595538u,
                               661107422u, 413664261u, 2951514874u, 1881869344u};
    const uint32_t later[8] = {347620587u,  1836912921u, 529292191u,  2653911144u,
                               2899225785u, 2538990245u, 4178375746u, 2214627857u};
    // The smaller key adds the words, the larger subtracts them.
    const bool aAdds = a.publicKey() < b.publicKey();
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(aAdds ? first[i] : 0u - first[i], maskedA[i]) << i;
        EXPECT_EQ(aAdds ? later[i] : 0u - later[i], maskedA[1024 + i]) << i;
    }
    for (size_t i = 0; i < maskedA.size(); ++i) {
        ASSERT_EQ(0u, maskedA[i] + maskedB[i]) << i;
    }
    // The same keys and input in another session give other masks.
    d.sessionId[0] ^= 1;
    std::vector<uint32_t> other(8, 0);
    ASSERT_EQ(MaskResult::Ok, masker.mask(a, {b.publicKey()}, transcriptHash(d), other.data(), 8));
    EXPECT_NE(std::vector<uint32_t>(maskedA.begin(), maskedA.begin() + 8), other);
}

}  // namespace
}  // namespace secagg
