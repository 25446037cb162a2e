#include "fact/upload/VectorEncoding.h"

#include <openssl/evp.h>

#include <algorithm>

namespace fact {
namespace {

// EVP_EncodeBlock takes an int length; encoding in slices whose length is a
// multiple of 3 gives the same text as one call and never overflows it.
constexpr size_t kSliceBytes = 3 * 16384;

size_t encodedLength(size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

}  // namespace

std::string toString(VectorEncoding encoding) {
    return encoding == VectorEncoding::kBase64 ? "base64" : "unknown";
}

std::string encodeVector(const std::vector<int32_t>& data, bool bigEndian) {
    std::vector<unsigned char> bytes;
    bytes.reserve(data.size() * 4);
    for (const int32_t value : data) {
        const uint32_t bits = static_cast<uint32_t>(value);
        const unsigned char le[4] = {
            static_cast<unsigned char>(bits & 0xffu),
            static_cast<unsigned char>((bits >> 8) & 0xffu),
            static_cast<unsigned char>((bits >> 16) & 0xffu),
            static_cast<unsigned char>((bits >> 24) & 0xffu),
        };
        if (bigEndian) {
            bytes.insert(bytes.end(), std::rbegin(le), std::rend(le));
        } else {
            bytes.insert(bytes.end(), std::begin(le), std::end(le));
        }
    }
    std::string encoded;
    encoded.reserve(encodedLength(bytes.size()));
    // One slice's text plus EVP_EncodeBlock's terminating NUL.
    std::vector<unsigned char> out(encodedLength(std::min(bytes.size(), kSliceBytes)) + 1);
    for (size_t offset = 0; offset < bytes.size(); offset += kSliceBytes) {
        const size_t n = std::min(kSliceBytes, bytes.size() - offset);
        const int written = EVP_EncodeBlock(out.data(), bytes.data() + offset, static_cast<int>(n));
        encoded.append(reinterpret_cast<const char*>(out.data()), static_cast<size_t>(written));
    }
    return encoded;
}

}  // namespace fact
