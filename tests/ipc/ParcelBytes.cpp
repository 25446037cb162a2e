#include "ParcelBytes.h"

#include <cstdio>
#include <stdexcept>
#include <vector>

namespace vemo {
namespace test {

std::string wireWords(const android::Parcel& parcel) {
    const uint8_t* data = parcel.data();
    std::string text;
    char hex[3];
    for (size_t k = 0; k < parcel.dataSize(); ++k) {
        if (k > 0 && k % 4 == 0) {
            text += ' ';
        }
        std::snprintf(hex, sizeof hex, "%02x", data[k]);
        text += hex;
    }
    return text;
}

std::vector<uint8_t> wireBytes(const std::string& words) {
    std::vector<uint8_t> bytes;
    std::string digits;
    for (const char c : words) {
        if (c != ' ') {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hex digits");
    }
    for (size_t k = 0; k < digits.size(); k += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(k, 2), nullptr, 16)));
    }
    return bytes;
}

void setWireWords(android::Parcel* parcel, const std::string& words) {
    const std::vector<uint8_t> bytes = wireBytes(words);
    parcel->setData(bytes.data(), bytes.size());
    parcel->setDataPosition(0);
}

}  // namespace test
}  // namespace vemo
