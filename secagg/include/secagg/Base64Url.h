#pragma once
// Unpadded base64url (RFC 4648, section 5), the encoding of every binary
// field in the protocol's JSON messages. Stateless; any thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace secagg {

std::string base64UrlEncode(const uint8_t* data, size_t size);

template <typename Bytes>
std::string base64UrlEncode(const Bytes& bytes) {
    return base64UrlEncode(bytes.data(), bytes.size());
}

// Strict: refuses padding, characters outside the url alphabet, a length of
// 1 mod 4 and non-zero unused bits, so every byte string has exactly one text.
bool base64UrlDecode(const std::string& text, std::vector<uint8_t>& out);

// Decodes a text that must hold exactly N bytes.
template <size_t N>
bool base64UrlDecodeFixed(const std::string& text, std::array<uint8_t, N>& out) {
    // Longer texts cannot hold N bytes; refusing them first bounds the work.
    if (text.size() != (N * 4 + 2) / 3) {
        return false;
    }
    std::vector<uint8_t> bytes;
    if (!base64UrlDecode(text, bytes) || bytes.size() != N) {
        return false;
    }
    std::memcpy(out.data(), bytes.data(), N);
    return true;
}

}  // namespace secagg
