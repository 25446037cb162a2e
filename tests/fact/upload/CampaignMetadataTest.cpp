#include "fact/upload/CampaignMetadata.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <stdexcept>

#include "fact/upload/VectorEncoding.h"
#include "hostlog/LogCapture.h"

namespace {

std::string metadataText(const std::string& privacy) {
    return "{\"campaign_id\":\"c-1\",\"differential_privacy\":\"" + privacy + "\"}";
}

TEST(ParseCampaignMetadata, BadTextThrowsAFixedTextAndLogsItOnce) {
    const std::string campaign = "Invalid campaign metadata json string";
    const std::string privacy = "Invalid differential privacy json string";
    const std::string syntax = "Failed to parse campaign metadata json string, error code ";
    const std::pair<std::string, std::string> rows[] = {
        {"{\"campaign_id\":\"c\",\"differential_privacy\":\"{}\",\"x\":1}", campaign},
        {"{\"campaign_id\":7,\"differential_privacy\":\"{\\\"cohort_size\\\":1}\"}", campaign},
        {"{\"campaign_id\":\"c\",\"differential_privacy\":{}}", campaign},
        {"{\"campaign_id\":\"c\"}", campaign},
        {"[\"c\"]", campaign},
        {std::string(1000000, '[') + std::string(1000000, ']'), campaign},
        {metadataText("{\\\"cohort_size\\\": 5.5}"), privacy},
        {metadataText("{}"), privacy},
        {metadataText("{\\\"cohort_size\\\":1,\\\"e\\\":1}"), privacy},
        // Integral, so the schema admits them, but not a 32-bit cohort size.
        {metadataText("{\\\"cohort_size\\\": -1}"), privacy},
        {metadataText("{\\\"cohort_size\\\": 4294967296}"), privacy},
        {"", syntax + "1"},
        {"{} {}", syntax + "2"},
        {std::string("{\"campaign_id\"\0:1}", 18), syntax + "5"},
        {metadataText("cohort_size=5"),
         "Failed to parse differential privacy json string, error code 3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first.substr(0, 60));
        hostlog::LogCapture logs;
        try {
            fact::parseCampaignMetadata(row.first);
            ADD_FAILURE() << "accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(std::string(e.what()), row.second);
        }
        // Schema mismatches add a debug line saying where; the error is logged once.
        size_t errors = 0;
        for (const auto& entry : logs.entries()) {
            errors += entry.priority == ANDROID_LOG_ERROR ? 1 : 0;
        }
        EXPECT_EQ(errors, 1u);
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:DataIngestionClient",
                                  "parseCampaignMetadata:" + row.second))
            << hostlog::describe(logs.entries());
    }
}

TEST(CreateJsonPayload, WritesTheCompactDocumentInItsFixedOrder) {
    fact::CampaignMetadata metadata;
    metadata.campaignId = "camp\"1";
    metadata.cohortSize = 12;
    EXPECT_EQ(fact::createJsonPayload("AQAAAP////8=", metadata, "FactOrvuManager_en\\_US_camp",
                                      "cohort-7"),
              "{\"campaignId\":\"camp\\\"1\",\"maskedFederatedAnalyticsData\":{"
              "\"applicationId\":\"FactOrvuManager_en\\\\_US_camp\",\"cohortId\":\"cohort-7\","
              "\"cohortSize\":12,\"maskedFederatedAnalyticsVector\":\"AQAAAP////8=\","
              "\"vectorEncoding\":\"base64\",\"elementDatatypeEndianness\":false}}");
}

TEST(EncodeVector, LaysOutFourBytesPerElementInTheStatedOrder) {
    const struct {
        std::vector<int32_t> values;
        bool bigEndian;
        const char* base64;
    } rows[] = {
        {{1, -1}, false, "AQAAAP////8="},  // 01000000 FFFFFFFF
        {{1, -1}, true, "AAAAAf////8="},   // 00000001 FFFFFFFF
        {{0x01020304}, false, "BAMCAQ=="}, {{0x01020304}, true, "AQIDBA=="}, {{}, false, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(fact::encodeVector(row.values, row.bigEndian), row.base64) << row.base64;
    }

    // Large enough to be encoded in several slices, with a remainder: the
    // same text as one block encoding of the same bytes.
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

}  // namespace
