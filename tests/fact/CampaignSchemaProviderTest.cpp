#include "fact/CampaignSchemaProvider.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FactTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/Bin.h"

namespace {

using fact::CampaignSchemaProvider;
using fact::test::dataPath;
using fact::test::editedCampaign;
using Edits = std::vector<std::pair<std::string, std::string>>;

const std::string kWrapper = "Failed to load campaign config from path: ";

std::string loadError(const CampaignSchemaProvider& provider, const std::string& path) {
    try {
        provider.LoadConfig(path);
        return "loaded";
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

TEST(CampaignSchemaProviderTest, ConvertsEveryField) {
    const auto schemas =
        CampaignSchemaProvider().LoadConfig(dataPath("campaign_two_producers.json"));
    ASSERT_EQ(1u, schemas.size());
    const fact::CampaignSchema& s = schemas.at("C_1");
    EXPECT_EQ("C_1", s.campaignId);
    EXPECT_EQ("tdp", s.dataProducer);
    EXPECT_EQ((std::vector<std::string>{"x", "y"}), s.cohortFilters);
    ASSERT_EQ(2u, s.uploadFrequencies.size());
    EXPECT_EQ(fact::UploadFrequencyConfig::SIZE, s.uploadFrequencies[0].type);
    EXPECT_EQ(1024, s.uploadFrequencies[0].value);
    EXPECT_EQ(fact::UploadFrequencyConfig::TIME, s.uploadFrequencies[1].type);
    EXPECT_EQ(3600, s.uploadFrequencies[1].value);
    EXPECT_DOUBLE_EQ(2.0, s.dpConfig.epsilon);
    EXPECT_EQ(100, s.dpConfig.cohortSize);
    EXPECT_EQ(1, s.dpConfig.configVersion);
    EXPECT_EQ("{}", s.dataProducerConfig);
    ASSERT_EQ(2u, s.vectorProducerConfigs.size());
    const auto& first = s.vectorProducerConfigs[0];
    EXPECT_EQ("first", first.analyticsName);
    EXPECT_TRUE(first.isCount);
    EXPECT_EQ(1, first.aggregationFunctionSize);
    EXPECT_EQ("int32", first.dataType);
    ASSERT_EQ(2u, first.attributes.size());
    const auto& alpha = *first.attributes.at("alpha");
    EXPECT_EQ("uint32", alpha.type);
    ASSERT_EQ(3u, alpha.bins.size());
    const auto& a1 = dynamic_cast<const fact::Bin<unsigned int>&>(*alpha.bins[1]);
    EXPECT_EQ("a1", a1.name);
    EXPECT_EQ(10u, a1.min);
    EXPECT_EQ(20u, a1.max);
    EXPECT_FALSE(a1.includeMax);
    const auto& beta = *first.attributes.at("beta");
    EXPECT_EQ(1, beta.IndexInRange("b1"));
    // Bins with min equal to max are accepted.
    const auto& flag = *s.vectorProducerConfigs[1].attributes.at("flag");
    EXPECT_EQ(1, flag.IndexInRange("true"));
    EXPECT_EQ(0, flag.IndexInRange("false"));
}

struct BadDocument {
    const char* fixture;
    Edits edits;
    std::string error;  // after the wrapper; PATH stands for the file's path
};

class BadDocuments : public ::testing::Test {
  protected:
    void check(const CampaignSchemaProvider& provider, const std::vector<BadDocument>& rows) {
        int n = 0;
        for (const BadDocument& row : rows) {
            const std::string name = "/data/c" + std::to_string(n++) + ".json";
            root.writeFile(name, editedCampaign(row.fixture, row.edits));
            const std::string path = root.path(name);
            std::string expected = row.error;
            const auto at = expected.find("PATH");
            if (at != std::string::npos)
                expected.replace(at, 4, path);
            EXPECT_EQ(kWrapper + path + " Error: " + expected, loadError(provider, path))
                << row.error;
        }
    }
    vemo::test::TempDeviceRoot root;
};

TEST_F(BadDocuments, RefusedByTheSchemaOrTheConversion) {
    const char* basic = "campaign_basic.json";
    const char* two = "campaign_two_producers.json";
    const std::string bins = "/data/0/attributes/0/bins/0";
    check(
        CampaignSchemaProvider(),
        {
            {basic,
             {{"/extra", "1"}},
             "Invalid schema: #\nInvalid Keyword: additionalProperties\nInvalid document: #/extra"},
            {basic,
             {{"/data", "-"}},
             "Invalid schema: #\nInvalid Keyword: required\nInvalid document: #"},
            {basic,
             {{"/upload_frequency", "[]"}},
             "Invalid schema: #/properties/upload_frequency\nInvalid Keyword: minItems\n"
             "Invalid document: #/upload_frequency"},
            {basic,
             {{"/upload_frequency/1", R"({"type": "size_kb", "value": 1})"},
              {"/upload_frequency/2", R"({"type": "size_kb", "value": 2})"}},
             "Invalid schema: #/properties/upload_frequency\nInvalid Keyword: maxItems\n"
             "Invalid document: #/upload_frequency"},
            {basic,
             {{"/data/0/attributes/0/type", R"("int8")"}},
             "Invalid schema: #/properties/data/items/properties/attributes/items/properties/type\n"
             "Invalid Keyword: enum\nInvalid document: #/data/0/attributes/0/type"},
            {basic,
             {{"/campaign_id", R"("")"}},
             "Invalid schema: #/properties/campaign_id\nInvalid Keyword: minLength\n"
             "Invalid document: #/campaign_id"},
            {basic,
             {{"/fact_compatibility_id", "2"}},
             "Failed to load \"fact_compatibility_id\" in PATH mismatched. Expected: 1 Actual: 2"},
            {basic,
             {{"/differential_privacy_config/config_version", "0"}},
             "Failed to load \"config_version\" mismatched in \"differential_privacy_config\". "
             "Expected: 1 Actual: 0"},
            {basic,
             {{"/differential_privacy_config/cohort_size", "4294967296"}},
             "Failed to load \"cohort_size\" out of range: 4294967296"},
            {basic,
             {{"/upload_frequency/0/value", "-3000000000"}},
             "Failed to load \"value\" out of range: -3000000000"},
            {basic,
             {{"/data/0/aggregation_function", R"("sum")"}},
             "Unsupported aggregation function: sum"},
            {basic,
             {{bins + "/min", "10"}, {bins + "/max", "5"}},
             "The \"bin\" \"instant\" in \"attributes\": \"latency_ms\" is invalid: min > max (10 "
             "> 5)"},
            {basic,
             {{"/data/0/attributes/2/bins/0/min", "0.9"}},
             "The \"bin\" \"low\" in \"attributes\": \"confidence\" is invalid: min > max (0.9 > "
             "0.5)"},
            {basic, {{bins + "/min", "0.5"}}, "Failed to load \"bins\" in \"latency_ms\" Number"},
            {basic,
             {{bins + "/max", "2147483648"}},
             "Failed to load \"bins\" in \"latency_ms\" Number"},
            {basic,
             {{"/data/0/attributes/0/bin_type", R"("enum")"}},
             "Failed to load \"bins\" in \"latency_ms\" Object"},
            {basic,
             {{"/data/0/attributes/0/bin_type", R"("enum")"},
              {"/data/0/attributes/0/bins", R"(["1", "2"])"}},
             "Failed to load \"bins\" in \"latency_ms\" String"},
            {basic,
             {{"/data/0/attributes/1/bin_type", R"("range")"}},
             "Invalid data type: string for \"range\" in \"locale\""},
            {two,
             {{"/data/1/attributes/0/bin_type", R"("enum")"},
              {"/data/1/attributes/0/bins", R"(["on"])"}},
             "Invalid data type: bool for \"enum\" in \"flag\""},
            {two,
             {{"/data/1/attributes/0/bins/1/max", "2"}},
             "Failed to load \"bins\" in \"flag\" Number"},
        });
}

TEST_F(BadDocuments, RefusedByTheConversionBehindAPermissiveSchema) {
    // These are kept out by the campaign schema; the conversion refuses them
    // on its own too.
    const char* basic = "campaign_basic.json";
    check(
        CampaignSchemaProvider("{}"),
        {
            {basic,
             {{"/cohort_filters/1", "7"}},
             "Failed to load \"cohort_filters\" with type Number"},
            {basic,
             {{"/cohort_filters/0", "null"}},
             "Failed to load \"cohort_filters\" with type Null"},
            {basic,
             {{"/upload_frequency/0/type", R"("weekly")"}},
             "Invalid type for upload frequency: weekly"},
            {basic, {{"/data/0/attributes/0/type", R"("int8")"}}, "Invalid data type string: int8"},
            {basic, {{"/data/0/attributes/0/bin_type", R"("set")"}}, "Invalid bin type: set"},
        });
}

TEST_F(BadDocuments, UnparsableSchemaText) {
    check(CampaignSchemaProvider("{"),
          {{"campaign_basic.json",
            {},
            "Failed to parse schema: Missing a name for object member. (offset 1)"}});
}

TEST_F(BadDocuments, UnreadableOrUnparsableFiles) {
    root.writeFile("/data/deep.json", std::string(5000, '[') + std::string(5000, ']'));
    root.writeFile("/data/big.json", "{\"campaign_id\": \"" + std::string(1 << 19, 'x') + "\"");
    root.writeFile("/data/huge.json", std::string((1 << 20) + 1, ' '));
    const auto enumBins = [](size_t count) {
        std::string bins = "[";
        for (size_t i = 0; i < count; ++i) {
            bins += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\"";
        }
        return bins + "]";
    };
    // Over the bounds before validation could spend its quadratic time.
    root.writeFile("/data/long.json", "{\"bins\": " + enumBins(4097) + "}");
    root.writeFile("/data/many.json", "[" + enumBins(4096) + "," + enumBins(4096) + "," +
                                          enumBins(4096) + "," + enumBins(4093) + "]");
    const std::string huge = root.path("/data/huge.json");
    struct Row {
        std::string path, error;
    };
    const std::string deep = root.path("/data/deep.json");
    const std::string big = root.path("/data/big.json");
    const std::string longArray = root.path("/data/long.json");
    const std::string many = root.path("/data/many.json");
    const std::vector<Row> rows = {
        {"/no/such/file.json", "Failed to open config file: /no/such/file.json"},
        {root.path("/data"), "Failed to open config file: " + root.path("/data")},
        {dataPath("empty.json"), "Failed to parse " + dataPath("empty.json") + ". Content: "},
        {dataPath("not_utf8.json"), "Failed to parse " + dataPath("not_utf8.json") + ". Content: " +
                                        fact::test::readText(dataPath("not_utf8.json"))},
        {dataPath("truncated.json"),
         "Failed to parse " + dataPath("truncated.json") +
             ". Content: " + fact::test::readText(dataPath("truncated.json"))},
        {deep, "Failed to parse " + deep + ". Content: " + fact::test::readText(deep)},
        {big, "Failed to parse " + big + ". Content: " + fact::test::readText(big)},
        {huge, "Config file too large: " + huge + " (1048577 bytes, limit 1048576)"},
        {longArray, "Config file has too many array items: " + longArray +
                        " (longest 4097, total 4097; limits 4096, 16384)"},
        {many, "Config file has too many array items: " + many +
                   " (longest 4096, total 16385; limits 4096, 16384)"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(kWrapper + row.path + " Error: " + row.error,
                  loadError(CampaignSchemaProvider(), row.path))
            << row.path;
    }
}

}  // namespace
