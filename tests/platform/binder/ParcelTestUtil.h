#pragma once
// Helpers for byte-exact parcel tests: hex text to bytes and back.

#include <binder/Parcel.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

namespace vemo {
namespace test {

// "0100 0000" -> {1,0,0,0}; spaces are ignored.
inline std::vector<uint8_t> unhex(const std::string& text) {
    std::vector<uint8_t> out;
    std::string digits;
    for (const char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            digits.push_back(c);
        }
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return out;
}

// Parcel bytes as hex, a space after every 4 bytes.
inline std::string hexOf(const android::Parcel& p) {
    std::string out;
    char buf[3];
    for (size_t i = 0; i < p.dataSize(); ++i) {
        snprintf(buf, sizeof buf, "%02x", p.data()[i]);
        out += buf;
        if (i % 4 == 3 && i + 1 < p.dataSize()) {
            out += ' ';
        }
    }
    return out;
}

inline std::string normalizeHex(const std::string& text) {
    android::Parcel p;
    const auto bytes = unhex(text);
    p.setData(bytes.data(), bytes.size());
    return hexOf(p);
}

}  // namespace test
}  // namespace vemo
