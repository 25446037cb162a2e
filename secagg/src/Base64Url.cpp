#include "secagg/Base64Url.h"

#include <openssl/evp.h>

#include <algorithm>
#include <limits>

namespace secagg {

std::string base64UrlEncode(const uint8_t* data, size_t size) {
    std::string out;
    // EVP_EncodeBlock takes an int length; encode in slices of whole triples.
    constexpr size_t kSlice = 3u << 20;
    std::string buffer;
    for (size_t done = 0; done < size; done += kSlice) {
        const size_t n = std::min(kSlice, size - done);
        buffer.resize(4 * ((n + 2) / 3) + 1);
        const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&buffer[0]),
                                            data + done, static_cast<int>(n));
        out.append(buffer.data(), static_cast<size_t>(written));
    }
    while (!out.empty() && out.back() == '=') {
        out.pop_back();
    }
    for (char& c : out) {
        if (c == '+') {
            c = '-';
        } else if (c == '/') {
            c = '_';
        }
    }
    return out;
}

namespace {

int urlDigit(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '-') {
        return 62;
    }
    if (c == '_') {
        return 63;
    }
    return -1;
}

}  // namespace

bool base64UrlDecode(const std::string& text, std::vector<uint8_t>& out) {
    out.clear();
    const size_t rest = text.size() % 4;
    if (rest == 1 || text.size() > static_cast<size_t>(std::numeric_limits<int>::max()) - 4) {
        return false;
    }
    std::string standard(text);
    for (char& c : standard) {
        if (urlDigit(c) < 0) {
            return false;
        }
        if (c == '-') {
            c = '+';
        } else if (c == '_') {
            c = '/';
        }
    }
    // The unused low bits of a partial group must be zero, or two texts would
    // decode to the same bytes.
    if (rest != 0) {
        const int last = urlDigit(text.back());
        if ((rest == 2 && (last & 0x0f) != 0) || (rest == 3 && (last & 0x03) != 0)) {
            return false;
        }
        standard.append(4 - rest, '=');
    }
    out.resize(standard.size() / 4 * 3);
    const int n =
        EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(standard.data()),
                        static_cast<int>(standard.size()));
    if (n < 0) {
        out.clear();
        return false;
    }
    // EVP_DecodeBlock keeps the bytes that padding stands for.
    out.resize(static_cast<size_t>(n) - (rest == 0 ? 0 : 4 - rest));
    return true;
}

}  // namespace secagg
