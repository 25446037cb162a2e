// Masking one vector with 12 neighbours through the core's vemoHandleMask
// (directive reading and checks, key agreements, mask generation, the result's
// copy), against the floor of the same work measured in the same run: 12
// X25519 agreements with HKDF-SHA256 and 12 AES-128-CTR keystreams of the
// vector's size through EVP, added into a uint32 buffer.

#include <benchmark/benchmark.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <secagg/KeyPair.h>
#include <secagg/MaskDirective.h>
#include <secagg/ParticipationRequest.h>
#include <vemocore/vemo_core.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int kNeighbours = 12;
std::atomic<int> gDelivered{0};

void onResult(VemoIntegralResult, void*) {
    gDelivered.fetch_add(1);
}

void BM_CoreMask(benchmark::State& state) {
    const VemoCoreConfig config{VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1, 0};
    VemoHandle handle = nullptr;
    vemoHandleCreate(&config, nullptr, &handle);
    vemoHandleRegisterIntegralResultCallback(handle, onResult);
    std::vector<int32_t> values(static_cast<size_t>(state.range(0)), 1);
    secagg::MaskDirective directive;
    directive.name = "app";
    directive.secondName = "meta";
    directive.length = static_cast<uint32_t>(values.size());
    directive.cohortId = "c";
    for (int i = 0; i < kNeighbours; ++i) {
        directive.neighbours.push_back(secagg::KeyPair::generate().publicKey());
    }
    for (auto _ : state) {
        state.PauseTiming();
        char* out = nullptr;
        vemoHandleIntegralInitiateNewRequest(handle, "app", values.data(),
                                             static_cast<unsigned>(values.size()), "meta", &out);
        secagg::ParticipationRequest request;
        std::string error;
        secagg::parseParticipationRequest(out, request, error);
        vemoDestroyString(out);
        directive.requestId = request.requestId;
        directive.sessionId[0]++;
        const std::string text = secagg::writeMaskDirective(directive);
        const int expected = gDelivered.load() + 1;
        state.ResumeTiming();
        if (vemoHandleMask(handle, text.c_str()) != 0) {
            state.SkipWithError("mask refused");
            break;
        }
        state.PauseTiming();
        while (gDelivered.load() < expected) {
            std::this_thread::yield();
        }
        state.ResumeTiming();
    }
    vemoHandleDestroy(handle);
    state.SetBytesProcessed(state.iterations() * state.range(0) * 4);
}

void BM_Floor(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint32_t> words(n, 1);
    EVP_PKEY* own = EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519");
    std::vector<EVP_PKEY*> peers;
    for (int i = 0; i < kNeighbours; ++i) {
        peers.push_back(EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519"));
    }
    EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-128-CTR", nullptr);
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    static const unsigned char zeros[4096] = {};
    unsigned char stream[4096];
    unsigned char salt[32] = {};
    char digest[] = "SHA256";
    for (auto _ : state) {
        for (EVP_PKEY* peer : peers) {
            unsigned char secret[32];
            size_t secretSize = sizeof secret;
            EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_pkey(nullptr, own, nullptr);
            EVP_PKEY_derive_init(ctx);
            EVP_PKEY_derive_set_peer(ctx, peer);
            EVP_PKEY_derive(ctx, secret, &secretSize);
            EVP_PKEY_CTX_free(ctx);
            unsigned char seed[16];
            EVP_KDF_CTX* kctx = EVP_KDF_CTX_new(kdf);
            const OSSL_PARAM params[] = {
                OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
                OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, secret, sizeof secret),
                OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt, sizeof salt),
                OSSL_PARAM_construct_end()};
            EVP_KDF_derive(kctx, seed, sizeof seed, params);
            EVP_KDF_CTX_free(kctx);
            EVP_CIPHER_CTX* cctx = EVP_CIPHER_CTX_new();
            EVP_EncryptInit_ex2(cctx, cipher, seed, zeros, nullptr);
            for (size_t done = 0; done < n; done += 1024) {
                const size_t chunk = std::min<size_t>(1024, n - done);
                int outl = 0;
                EVP_EncryptUpdate(cctx, stream, &outl, zeros, static_cast<int>(chunk * 4));
                const uint32_t* keystream = reinterpret_cast<const uint32_t*>(stream);
                for (size_t i = 0; i < chunk; ++i) {
                    words[done + i] += keystream[i];
                }
            }
            EVP_CIPHER_CTX_free(cctx);
        }
        benchmark::DoNotOptimize(words.data());
    }
    EVP_CIPHER_free(cipher);
    EVP_KDF_free(kdf);
    for (EVP_PKEY* peer : peers) {
        EVP_PKEY_free(peer);
    }
    EVP_PKEY_free(own);
    state.SetBytesProcessed(state.iterations() * state.range(0) * 4);
}

BENCHMARK(BM_CoreMask)->Arg(1 << 10)->Arg(1 << 16)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Floor)->Arg(1 << 10)->Arg(1 << 16)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
