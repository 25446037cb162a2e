#include "WireFormat.h"

#include <gtest/gtest.h>

#include "fact/upload/VectorEncoding.h"

namespace vemo {
namespace cloud {
namespace {

// The device's own encoder, read back; then texts the decoder must refuse
// although OpenSSL's block decoder would take them.
TEST(WireFormatTest, DecodesWhatDevicesEncodeAndNothingElse) {
    const std::vector<int32_t> values{1, -1, 0x7fffffff, -2147483647 - 1, 42};
    for (const bool bigEndian : {false, true}) {
        std::vector<uint32_t> out;
        std::string error;
        ASSERT_TRUE(WireFormat::decodeVector(fact::encodeVector(values, bigEndian), bigEndian,
                                             values.size(), out, error))
            << error;
        EXPECT_EQ(out, std::vector<uint32_t>(values.begin(), values.end()));
    }
    const std::string good = fact::encodeVector({1, 2}, false);  // 8 bytes: one '='
    ASSERT_EQ(good.back(), '=');
    const struct {
        std::string text;
        size_t length;
    } bad[] = {
        {good, 3},                                      // fewer elements than the session's
        {good + "AAAA", 2},                             // more
        {good.substr(0, 5) + "=" + good.substr(6), 2},  // '=' inside
        {good.substr(0, good.size() - 1) + "A", 2},     // padding missing
        {" " + good.substr(1), 2},                      // whitespace OpenSSL trims
        {good.substr(0, 4) + "*" + good.substr(5), 2},  // outside the alphabet
        {"", 0},
    };
    for (const auto& b : bad) {
        std::vector<uint32_t> out;
        std::string error;
        EXPECT_FALSE(WireFormat::decodeVector(b.text, false, b.length, out, error)) << b.text;
    }
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
