#include "ParcelBytes.h"

#include <cstdio>
#include <stdexcept>
#include <vector>

namespace vemo {
namespace test {

std::string wireWords(const android::Parcel& parcel) {
    std::string text;
    char hex[3];
    for (size_t k = 0; k < parcel.dataSize(); ++k) {
        if (k > 0 && k % 4 == 0) {
            text += ' ';
        }
        std::snprintf(hex, sizeof hex, "%02x", parcel.data()[k]);
        text += hex;
    }
    return text;
}

void setWireWords(android::Parcel* parcel, const std::string& words) {
    std::string digits;
    for (const char c : words) {
        if (c != ' ') {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hex digits");
    }
    std::vector<uint8_t> bytes;
    for (size_t k = 0; k < digits.size(); k += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(k, 2), nullptr, 16)));
    }
    parcel->setData(bytes.data(), bytes.size());
    parcel->setDataPosition(0);
}

}  // namespace test
}  // namespace vemo
