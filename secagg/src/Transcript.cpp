#include "secagg/Transcript.h"

#include <openssl/evp.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace secagg {

namespace {

struct MdCtxDeleter {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

void field(EVP_MD_CTX* ctx, const void* data, size_t size, bool& ok) {
    const uint32_t n = static_cast<uint32_t>(size);
    const unsigned char prefix[4] = {
        static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
        static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(n >> 24)};
    ok = ok && EVP_DigestUpdate(ctx, prefix, sizeof prefix) == 1 &&
         EVP_DigestUpdate(ctx, data, size) == 1;
}

void field(EVP_MD_CTX* ctx, const std::string& text, bool& ok) {
    field(ctx, text.data(), text.size(), ok);
}

}  // namespace

Digest transcriptHash(const MaskDirective& directive) {
    std::unique_ptr<EVP_MD_CTX, MdCtxDeleter> ctx(EVP_MD_CTX_new());
    bool ok = ctx && EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) == 1;
    field(ctx.get(), std::string("vemo-secagg/v1"), ok);
    field(ctx.get(), directive.sessionId.data(), directive.sessionId.size(), ok);
    field(ctx.get(), std::to_string(directive.stage), ok);
    field(ctx.get(), directive.prg, ok);
    field(ctx.get(), std::string(kindName(directive.kind)), ok);
    field(ctx.get(), std::to_string(directive.length), ok);
    field(ctx.get(), directive.name, ok);
    field(ctx.get(), directive.secondName, ok);
    Digest digest{};
    unsigned int size = 0;
    if (!ok || EVP_DigestFinal_ex(ctx.get(), digest.data(), &size) != 1 || size != digest.size()) {
        throw std::runtime_error("SHA-256 failed");
    }
    return digest;
}

}  // namespace secagg
