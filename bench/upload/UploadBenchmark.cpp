// The upload's local work (metadata check, vector layout, base64, document)
// against the irreducible baseline of the same work: one EVP_EncodeBlock over
// the vector's bytes as they lie in memory plus one RapidJSON write of the
// same document, and RapidJSON parsing the same metadata texts.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <malloc.h>

#include <vector>

#include "fact/upload/CampaignMetadata.h"
#include "fact/upload/VectorEncoding.h"
#include "hostlog/LogCapture.h"

namespace {

const std::string kMetadata =
    "{\"campaign_id\":\"c-1\",\"differential_privacy\":\"{\\\"cohort_size\\\":5}\"}";

std::vector<int32_t> vectorOf(int64_t n) {
    std::vector<int32_t> values(static_cast<size_t>(n));
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<int32_t>(i * 2654435761u);
    }
    return values;
}

void BM_EncodeAndBuildDocument(benchmark::State& state) {
    const std::vector<int32_t> values = vectorOf(state.range(0));
    fact::CampaignMetadata metadata;
    metadata.campaignId = "c-1";
    metadata.cohortSize = 5;
    for (auto _ : state) {
        const std::string encoded = fact::encodeVector(values, false);
        benchmark::DoNotOptimize(fact::createJsonPayload(encoded, metadata, "app", "cohort"));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 4);
}

void BM_BaselineEncodeBlockAndWrite(benchmark::State& state) {
    const std::vector<int32_t> values = vectorOf(state.range(0));
    for (auto _ : state) {
        std::string encoded((values.size() * 4 + 2) / 3 * 4 + 1, '\0');
        const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[0]),
                                      reinterpret_cast<const unsigned char*>(values.data()),
                                      static_cast<int>(values.size() * 4));
        encoded.resize(static_cast<size_t>(n));
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        writer.StartObject();
        writer.Key("campaignId");
        writer.String("c-1");
        writer.Key("maskedFederatedAnalyticsData");
        writer.StartObject();
        writer.Key("applicationId");
        writer.String("app");
        writer.Key("cohortId");
        writer.String("cohort");
        writer.Key("cohortSize");
        writer.Uint(5);
        writer.Key("maskedFederatedAnalyticsVector");
        writer.String(encoded);
        writer.Key("vectorEncoding");
        writer.String("base64");
        writer.Key("elementDatatypeEndianness");
        writer.Bool(false);
        writer.EndObject();
        writer.EndObject();
        benchmark::DoNotOptimize(std::string(buffer.GetString(), buffer.GetSize()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 4);
}

void BM_ParseCampaignMetadata(benchmark::State& state) {
    hostlog::LogCapture quiet;
    for (auto _ : state) {
        benchmark::DoNotOptimize(fact::parseCampaignMetadata(kMetadata));
    }
}

void BM_BaselineParseMetadataTexts(benchmark::State& state) {
    for (auto _ : state) {
        rapidjson::Document outer;
        outer.Parse(kMetadata.data(), kMetadata.size());
        const rapidjson::Value& inner = outer["differential_privacy"];
        rapidjson::Document privacy;
        privacy.Parse(inner.GetString(), inner.GetStringLength());
        benchmark::DoNotOptimize(privacy["cohort_size"].GetInt());
    }
}

BENCHMARK(BM_EncodeAndBuildDocument)->Arg(64)->Arg(4096)->Arg(65536);
BENCHMARK(BM_BaselineEncodeBlockAndWrite)->Arg(64)->Arg(4096)->Arg(65536);
BENCHMARK(BM_ParseCampaignMetadata);
BENCHMARK(BM_BaselineParseMetadataTexts);

}  // namespace

// In a tight loop glibc's heap trimming and its moving mmap threshold make
// some sizes pay page faults every iteration (two brk calls per iteration,
// seen with strace) on one side and not the other; fixed thresholds take the
// allocator's policy out of the comparison for both sides.
int main(int argc, char** argv) {
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
