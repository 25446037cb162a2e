#pragma once
// Byte-exact parcel tests (here and in tests/ipc) write a parcel's contents as space-separated 4-byte
// words in wire order, eight hex digits each: "01000000 63000000".

#include <binder/Parcel.h>

#include <string>

namespace vemo {
namespace test {

std::string wireWords(const android::Parcel& parcel);

// Makes the parcel hold exactly the bytes of `words` (spaces are ignored),
// read position 0.
void setWireWords(android::Parcel* parcel, const std::string& words);

}  // namespace test
}  // namespace vemo
