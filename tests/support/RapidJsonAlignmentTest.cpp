// RapidJSON's pool allocator must hand out blocks aligned for its widest
// value: on 32-bit ARM doubles and 64-bit integers need 8 bytes, while its
// default alignment there is 4. The build sets the alignment for every target;
// this test deliberately does not link vemo_rapidjson to check that.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <string>

static_assert(RAPIDJSON_ALIGN(1) == 8,
              "the build's RAPIDJSON_ALIGN option did not reach this file");

namespace {

int countMisaligned(const rapidjson::Value& v, const std::string& where, std::string& report) {
    int bad = 0;
    if (reinterpret_cast<std::uintptr_t>(&v) % alignof(rapidjson::Value) != 0) {
        report += where + " ";
        ++bad;
    }
    if (v.IsObject()) {
        for (const auto& m : v.GetObject()) {
            bad += countMisaligned(m.value, where + "/" + m.name.GetString(), report);
        }
    } else if (v.IsArray()) {
        for (rapidjson::SizeType i = 0; i < v.Size(); ++i) {
            bad += countMisaligned(v[i], where + "/" + std::to_string(i), report);
        }
    }
    return bad;
}

TEST(RapidJsonAlignmentTest, PooledValuesAreAlignedForDoublesAndInt64) {
    // Strings of odd lengths and nesting put pool blocks at many offsets.
    rapidjson::Document doc;
    doc.Parse(R"({"a":1.5,"bbb":[1,2,3,4294967296],"c":{"dd":"x","eee":[2.25,-9007199254740993]},)"
              R"("fffff":[{"g":0.125},{"hh":"odd"},[18446744073709551615]],"i":"seven!!"})");
    ASSERT_FALSE(doc.HasParseError());

    std::string report;
    EXPECT_EQ(countMisaligned(doc, "", report), 0) << report;
}

}  // namespace
