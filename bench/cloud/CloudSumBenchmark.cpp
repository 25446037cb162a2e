// Summing a session's uploads: 1000 base64 vectors of 4096 elements, each
// checked and decoded by the cloud's own decoder and added modulo 2^32 by
// the protocol library, against the floor of the same work: one
// EVP_DecodeBlock per text into one buffer and a plain add loop.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstring>
#include <string>
#include <vector>

#include <secagg/Checksum.h>

#include "WireFormat.h"
#include "fact/upload/VectorEncoding.h"

namespace {

constexpr size_t kUploads = 1000;
constexpr size_t kElements = 4096;

const std::vector<std::string>& uploads() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> out;
        std::vector<int32_t> values(kElements);
        for (size_t u = 0; u < kUploads; ++u) {
            for (size_t i = 0; i < kElements; ++i) {
                values[i] = static_cast<int32_t>((u * kElements + i) * 2654435761u);
            }
            out.push_back(fact::encodeVector(values, false));
        }
        return out;
    }();
    return texts;
}

void BM_CloudDecodeAndSum(benchmark::State& state) {
    const auto& texts = uploads();
    std::vector<uint32_t> sum(kElements);
    std::vector<uint32_t> words;
    std::string error;
    for (auto _ : state) {
        std::fill(sum.begin(), sum.end(), 0);
        for (const auto& text : texts) {
            if (!vemo::cloud::WireFormat::decodeVector(text, false, kElements, words, error)) {
                state.SkipWithError(error.c_str());
                return;
            }
            secagg::addInto(sum.data(), words.data(), kElements);
        }
        benchmark::DoNotOptimize(sum.data());
    }
    state.SetItemsProcessed(state.iterations() * kUploads);
}

void BM_FloorDecodeBlockAndAdd(benchmark::State& state) {
    const auto& texts = uploads();
    std::vector<uint32_t> sum(kElements);
    std::vector<unsigned char> bytes(kElements * 4 + 4);
    for (auto _ : state) {
        std::fill(sum.begin(), sum.end(), 0);
        for (const auto& text : texts) {
            EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()));
            for (size_t i = 0; i < kElements; ++i) {
                uint32_t word;
                std::memcpy(&word, &bytes[4 * i], 4);
                sum[i] += word;
            }
        }
        benchmark::DoNotOptimize(sum.data());
    }
    state.SetItemsProcessed(state.iterations() * kUploads);
}

BENCHMARK(BM_CloudDecodeAndSum)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloorDecodeBlockAndAdd)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
