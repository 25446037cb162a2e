#pragma once
// Helpers for byte-exact parcel tests: a parcel's contents as space-separated
// 4-byte words in wire order ("01000000 63000000"), and parcels made of raw
// words.

#include <binder/Parcel.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vemo {
namespace test {

// The parcel's bytes, eight hex digits per 4-byte word.
std::string wireWords(const android::Parcel& parcel);

// The bytes of words ("01000000 6300"); spaces are ignored.
std::vector<uint8_t> wireBytes(const std::string& words);

// A parcel holding exactly the bytes of the words ("01000000 6300"), read
// position 0. Spaces are ignored.
void setWireWords(android::Parcel* parcel, const std::string& words);

}  // namespace test
}  // namespace vemo
