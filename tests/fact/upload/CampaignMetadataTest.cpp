#include "fact/upload/CampaignMetadata.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <climits>
#include <stdexcept>

#include "hostlog/LogCapture.h"

namespace {

using fact::CampaignMetadata;
using fact::VectorEncoding;

const char kTag[] = "Vemo:DataIngestionClient";

std::string metadataText(const std::string& privacy) {
    return "{\"campaign_id\":\"c-1\",\"differential_privacy\":\"" + privacy + "\"}";
}

TEST(ParseCampaignMetadata, ReadsBothLevels) {
    const CampaignMetadata metadata =
        fact::parseCampaignMetadata(metadataText("{\\\"cohort_size\\\": 42}"));
    EXPECT_EQ(metadata.campaignId, "c-1");
    EXPECT_EQ(metadata.cohortSize, 42);
    EXPECT_EQ(metadata.vectorEncoding, VectorEncoding::kBase64);
    EXPECT_FALSE(metadata.elementDatatypeEndianness);
}

struct BadMetadata {
    const char* name;
    std::string text;
    std::string error;
};
void PrintTo(const BadMetadata& c, std::ostream* os) {
    *os << c.name;
}

class ParseCampaignMetadataError : public ::testing::TestWithParam<BadMetadata> {};

TEST_P(ParseCampaignMetadataError, ThrowsTheFixedTextAndLogsItOnce) {
    hostlog::LogCapture logs;
    try {
        fact::parseCampaignMetadata(GetParam().text);
        FAIL() << "accepted " << GetParam().text;
    } catch (const std::invalid_argument& e) {
        EXPECT_EQ(std::string(e.what()), GetParam().error);
    }
    // Schema mismatches add a debug line saying where; the error is logged once.
    size_t errors = 0;
    for (const auto& entry : logs.entries()) {
        errors += entry.priority == ANDROID_LOG_ERROR ? 1 : 0;
    }
    EXPECT_EQ(errors, 1u);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag, "parseCampaignMetadata:" + GetParam().error))
        << hostlog::describe(logs.entries());
}

const std::string kInvalidCampaign = "Invalid campaign metadata json string";
const std::string kInvalidPrivacy = "Invalid differential privacy json string";

INSTANTIATE_TEST_SUITE_P(
    Schema, ParseCampaignMetadataError,
    ::testing::Values(
        BadMetadata{"ExtraMember",
                    "{\"campaign_id\":\"c\",\"differential_privacy\":\"{}\",\"x\":1}",
                    kInvalidCampaign},
        BadMetadata{"CampaignIdNotText",
                    "{\"campaign_id\":7,\"differential_privacy\":\"{\\\"cohort_size\\\":1}\"}",
                    kInvalidCampaign},
        BadMetadata{"PrivacyNotText", "{\"campaign_id\":\"c\",\"differential_privacy\":{}}",
                    kInvalidCampaign},
        BadMetadata{"PrivacyMissing", "{\"campaign_id\":\"c\"}", kInvalidCampaign},
        BadMetadata{"NotAnObject", "[\"c\"]", kInvalidCampaign},
        BadMetadata{"DeeplyNested", std::string(1000000, '[') + std::string(1000000, ']'),
                    kInvalidCampaign},
        BadMetadata{"CohortSizeFraction", metadataText("{\\\"cohort_size\\\": 5.5}"),
                    kInvalidPrivacy},
        BadMetadata{"CohortSizeText", metadataText("{\\\"cohort_size\\\": \\\"5\\\"}"),
                    kInvalidPrivacy},
        BadMetadata{"CohortSizeMissing", metadataText("{}"), kInvalidPrivacy},
        BadMetadata{"PrivacyExtraMember", metadataText("{\\\"cohort_size\\\":1,\\\"e\\\":1}"),
                    kInvalidPrivacy}),
    [](const ::testing::TestParamInfo<BadMetadata>& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Syntax, ParseCampaignMetadataError,
    ::testing::Values(
        BadMetadata{"Empty", "", "Failed to parse campaign metadata json string, error code 1"},
        BadMetadata{"NotJson", "campaign",
                    "Failed to parse campaign metadata json string, error code 3"},
        BadMetadata{"TrailingText", "{} {}",
                    "Failed to parse campaign metadata json string, error code 2"},
        BadMetadata{"EmbeddedNul", std::string("{\"campaign_id\"\0:1}", 18),
                    "Failed to parse campaign metadata json string, error code 5"},
        BadMetadata{"PrivacyNotJson", metadataText("cohort_size=5"),
                    "Failed to parse differential privacy json string, error code 3"},
        // Integral, so the schema admits them, but not a 32-bit cohort size.
        BadMetadata{"CohortSizeNegative", metadataText("{\\\"cohort_size\\\": -1}"),
                    kInvalidPrivacy},
        BadMetadata{"CohortSizeTooLarge", metadataText("{\\\"cohort_size\\\": 4294967296}"),
                    kInvalidPrivacy}),
    [](const ::testing::TestParamInfo<BadMetadata>& info) { return info.param.name; });

TEST(CreateJsonPayload, WritesTheCompactDocumentInItsFixedOrder) {
    CampaignMetadata metadata;
    metadata.campaignId = "camp\"1";
    metadata.cohortSize = 12;
    EXPECT_EQ(fact::createJsonPayload("AQAAAP////8=", metadata, "FactOrvuManager_en\\_US_camp",
                                      "cohort-7"),
              "{\"campaignId\":\"camp\\\"1\",\"maskedFederatedAnalyticsData\":{"
              "\"applicationId\":\"FactOrvuManager_en\\\\_US_camp\",\"cohortId\":\"cohort-7\","
              "\"cohortSize\":12,\"maskedFederatedAnalyticsVector\":\"AQAAAP////8=\","
              "\"vectorEncoding\":\"base64\",\"elementDatatypeEndianness\":false}}");
    metadata.elementDatatypeEndianness = true;
    metadata.cohortSize = INT32_MAX;
    const std::string big = fact::createJsonPayload("", metadata, "a", "b");
    EXPECT_NE(big.find("\"cohortSize\":2147483647,\"maskedFederatedAnalyticsVector\":\"\","),
              std::string::npos)
        << big;
    EXPECT_NE(big.find("\"elementDatatypeEndianness\":true}}"), std::string::npos) << big;
}

TEST(ValidateJson, AnswersAndRejectsASchemaThatIsNotJson) {
    rapidjson::Document document;
    document.Parse("{\"cohort_size\":3}");
    EXPECT_TRUE(fact::validateJson(document, fact::kDifferentialPrivacySchema));
    EXPECT_FALSE(fact::validateJson(document, fact::kCampaignMetadataSchema));
    try {
        fact::validateJson(document, "{\"type\":");
        FAIL() << "a broken schema was accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Failed to parse schema json string, error code 3");
    }
}

struct EncodingCase {
    std::vector<int32_t> values;
    bool bigEndian;
    const char* base64;
};
void PrintTo(const EncodingCase& c, std::ostream* os) {
    *os << c.base64;
}

class EncodeVector : public ::testing::TestWithParam<EncodingCase> {};

TEST_P(EncodeVector, LaysOutFourBytesPerElementInTheStatedOrder) {
    EXPECT_EQ(fact::encodeVector(GetParam().values, GetParam().bigEndian), GetParam().base64);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, EncodeVector,
    ::testing::Values(EncodingCase{{1, -1}, false, "AQAAAP////8="},  // 01000000 FFFFFFFF
                      EncodingCase{{1, -1}, true, "AAAAAf////8="},   // 00000001 FFFFFFFF
                      EncodingCase{{0x01020304}, false, "BAMCAQ=="},
                      EncodingCase{{0x01020304}, true, "AQIDBA=="},
                      EncodingCase{{INT32_MIN, INT32_MAX}, false, "AAAAgP///38="},
                      EncodingCase{{INT32_MIN, INT32_MAX}, true, "gAAAAH////8="},
                      EncodingCase{{}, false, ""}, EncodingCase{{}, true, ""}),
    [](const ::testing::TestParamInfo<EncodingCase>& info) {
        return std::to_string(info.index) + (info.param.bigEndian ? "BigEndian" : "LittleEndian");
    });

TEST(EncodeVectorLarge, MatchesOneBlockEncodingOfTheSameBytes) {
    // Large enough to be encoded in several slices, with a remainder.
    std::vector<int32_t> values(40001);
    std::vector<unsigned char> bytes;
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<int32_t>(i * 2654435761u);
        const uint32_t bits = static_cast<uint32_t>(values[i]);
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<unsigned char>(bits >> shift));
        }
    }
    std::string expected((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&expected[0]), bytes.data(),
                                  static_cast<int>(bytes.size()));
    expected.resize(static_cast<size_t>(n));
    EXPECT_EQ(fact::encodeVector(values, false), expected);
}

TEST(VectorEncodingName, KnowsOnlyBase64) {
    EXPECT_EQ(fact::toString(VectorEncoding::kBase64), "base64");
    EXPECT_EQ(fact::toString(static_cast<VectorEncoding>(1)), "unknown");
}

}  // namespace
