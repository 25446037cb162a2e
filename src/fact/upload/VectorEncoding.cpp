#include "fact/upload/VectorEncoding.h"

#include <openssl/evp.h>

#include <algorithm>

namespace fact {
namespace {

// The bytes are encoded in slices from a stack buffer: a slice holds whole
// elements and whole 3-byte base64 groups (a multiple of 12 bytes), so the
// texts of the slices join into the text of the whole, and EVP_EncodeBlock's
// int length can never overflow.
constexpr size_t kSliceElements = 768;
constexpr size_t kSliceBytes = kSliceElements * 4;
static_assert(kSliceBytes % 3 == 0, "slices must end on a base64 group");

size_t encodedLength(size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

}  // namespace

std::string toString(VectorEncoding encoding) {
    return encoding == VectorEncoding::kBase64 ? "base64" : "unknown";
}

std::string encodeVector(const std::vector<int32_t>& data, bool bigEndian) {
    // One text plus the NUL that EVP_EncodeBlock writes after each slice.
    std::string encoded(encodedLength(data.size() * 4) + 1, '\0');
    size_t length = 0;
    unsigned char slice[kSliceBytes];
    for (size_t first = 0; first < data.size(); first += kSliceElements) {
        const size_t count = std::min(kSliceElements, data.size() - first);
        unsigned char* out = slice;
        for (size_t i = first; i < first + count; ++i) {
            const uint32_t bits = static_cast<uint32_t>(data[i]);
            for (int k = 0; k < 4; ++k) {
                const int shift = bigEndian ? 24 - 8 * k : 8 * k;
                *out++ = static_cast<unsigned char>((bits >> shift) & 0xffu);
            }
        }
        const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[length]),
                                            slice, static_cast<int>(count * 4));
        length += static_cast<size_t>(written);
    }
    encoded.resize(length);
    return encoded;
}

}  // namespace fact
