#include "fact/CampaignSchemaProvider.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FactTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/Bin.h"

namespace {

using fact::CampaignSchemaProvider;
using fact::test::dataPath;
using fact::test::Pairs;
using vemo::test::readHostFile;

const char* const kBasic = "campaign_basic.json";
const char* const kTwo = "campaign_two_producers.json";

// Identifiers, upload frequencies, privacy, producer configuration and bin
// bounds show in CampaignManagerTest's and FactApiTest's exact vectors, ids and
// metadata; the bins' declared type and open upper bound do not.
TEST(CampaignSchemaProviderTest, ConvertsBinsWithTheirDeclaredTypes) {
    const auto schemas = CampaignSchemaProvider().LoadConfig(dataPath(kTwo));
    const auto& alpha = *schemas.at("C_1").vectorProducerConfigs[0].attributes.at("alpha");
    ASSERT_EQ(3u, alpha.bins.size());
    const auto& a1 = dynamic_cast<const fact::Bin<unsigned int>&>(*alpha.bins[1]);
    EXPECT_FALSE(a1.includeMax);
}

class CampaignSchemaProviderErrors : public ::testing::Test {
  protected:
    struct Row {
        Pairs edits;
        std::string error;  // PATH stands for the file's path
        const char* fixture = kBasic;
    };

    // The loader's error for `path` once the wrapper naming the path is
    // checked and taken off.
    static std::string loadError(const std::string& path) {
        const std::string wrapper =
            "Failed to load campaign config from path: " + path + " Error: ";
        const std::string error =
            fact::test::errorOf([&] { CampaignSchemaProvider().LoadConfig(path); });
        return error.compare(0, wrapper.size(), wrapper) == 0 ? error.substr(wrapper.size())
                                                              : "unwrapped: " + error;
    }

    std::string write(const std::string& name, const std::string& text) {
        root.writeFile("/data/" + name, text);
        return root.path("/data/" + name);
    }

    void check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            const std::string path =
                write("c.json", fact::test::editedCampaign(row.fixture, row.edits));
            std::string expected = row.error;
            const auto at = expected.find("PATH");
            if (at != std::string::npos)
                expected.replace(at, 4, path);
            EXPECT_EQ(expected, loadError(path));
        }
    }

    vemo::test::TempDeviceRoot root;
};

TEST_F(CampaignSchemaProviderErrors, RefusedByTheSchemaOrTheConversion) {
    const std::string bins = "/data/0/attributes/0/bins";
    check({
        {{{"/extra", "1"}},
         "Invalid schema: #\nInvalid Keyword: additionalProperties\nInvalid document: #/extra"},
        {{{"/data", "-"}}, "Invalid schema: #\nInvalid Keyword: required\nInvalid document: #"},
        {{{"/upload_frequency", "[]"}},
         "Invalid schema: #/properties/upload_frequency\nInvalid Keyword: minItems\n"
         "Invalid document: #/upload_frequency"},
        {{{"/upload_frequency/1", R"({"type": "size_kb", "value": 1})"},
          {"/upload_frequency/2", R"({"type": "size_kb", "value": 2})"}},
         "Invalid schema: #/properties/upload_frequency\nInvalid Keyword: maxItems\n"
         "Invalid document: #/upload_frequency"},
        {{{"/data/0/attributes/0/type", R"("int8")"}},
         "Invalid schema: "
         "#/properties/data/items/properties/attributes/items/properties/type\n"
         "Invalid Keyword: enum\nInvalid document: #/data/0/attributes/0/type"},
        {{{"/campaign_id", R"("")"}},
         "Invalid schema: #/properties/campaign_id\nInvalid Keyword: minLength\n"
         "Invalid document: #/campaign_id"},
        {{{"/fact_compatibility_id", "2"}},
         "Failed to load \"fact_compatibility_id\" in PATH mismatched. Expected: 1 Actual: 2"},
        {{{"/differential_privacy_config/config_version", "0"}},
         "Failed to load \"config_version\" mismatched in \"differential_privacy_config\". "
         "Expected: 1 Actual: 0"},
        {{{"/differential_privacy_config/cohort_size", "4294967296"}},
         "Failed to load \"cohort_size\" out of range: 4294967296"},
        {{{"/upload_frequency/0/value", "-3000000000"}},
         "Failed to load \"value\" out of range: -3000000000"},
        {{{"/data/0/aggregation_function", R"("sum")"}}, "Unsupported aggregation function: sum"},
        {{{bins + "/0/min", "10"}, {bins + "/0/max", "5"}},
         "The \"bin\" \"instant\" in \"attributes\": \"latency_ms\" is invalid: min > max "
         "(10 > 5)"},
        {{{"/data/0/attributes/2/bins/0/min", "0.9"}},
         "The \"bin\" \"low\" in \"attributes\": \"confidence\" is invalid: min > max (0.9 "
         "> 0.5)"},
        {{{bins + "/0/min", "0.5"}}, "Failed to load \"bins\" in \"latency_ms\" Number"},
        {{{bins + "/0/max", "2147483648"}}, "Failed to load \"bins\" in \"latency_ms\" Number"},
        {{{"/data/0/attributes/0/bin_type", R"("enum")"}},
         "Failed to load \"bins\" in \"latency_ms\" Object"},
        {{{"/data/0/attributes/1/bin_type", R"("range")"}},
         "Invalid data type: string for \"range\" in \"locale\""},
        {{{"/data/1/attributes/0/bin_type", R"("enum")"},
          {"/data/1/attributes/0/bins", R"(["on"])"}},
         "Invalid data type: bool for \"enum\" in \"flag\"",
         kTwo},
        {{{"/data/1/attributes/0/bins/1/max", "2"}},
         "Failed to load \"bins\" in \"flag\" Number",
         kTwo},
    });
}

TEST_F(CampaignSchemaProviderErrors, UnreadableUnparsableOrOversizedFiles) {
    const auto enumBins = [](size_t count) {
        std::string bins = "[";
        for (size_t i = 0; i < count; ++i)
            bins += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\"";
        return bins + "]";
    };
    const auto unparsable = [](const std::string& path) {
        return "Failed to parse " + path + ". Content: " + readHostFile(path);
    };
    const std::string deep = write("deep.json", std::string(5000, '[') + std::string(5000, ']'));
    const std::string big =
        write("big.json", "{\"campaign_id\": \"" + std::string(1 << 19, 'x') + "\"");
    const std::string huge = write("huge.json", std::string((1 << 20) + 1, ' '));
    // Over the bounds before validation could spend its quadratic time.
    const std::string longest = write("long.json", "{\"bins\": " + enumBins(4097) + "}");
    const std::string many = write("many.json", "[" + enumBins(4096) + "," + enumBins(4096) + "," +
                                                    enumBins(4096) + "," + enumBins(4093) + "]");
    const Pairs rows = {
        {"/no/such/file.json", "Failed to open config file: /no/such/file.json"},
        {dataPath("empty.json"), unparsable(dataPath("empty.json"))},
        {dataPath("not_utf8.json"), unparsable(dataPath("not_utf8.json"))},
        {dataPath("truncated.json"), unparsable(dataPath("truncated.json"))},
        {deep, unparsable(deep)},
        {big, unparsable(big)},
        {huge, "Config file too large: " + huge + " (1048577 bytes, limit 1048576)"},
        {longest, "Config file has too many array items: " + longest +
                      " (longest 4097, total 4097; limits 4096, 16384)"},
        {many, "Config file has too many array items: " + many +
                   " (longest 4096, total 16385; limits 4096, 16384)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.second, loadError(row.first)) << row.first;
}

}  // namespace
