#pragma once
// How a masked vector travels in the upload document: its elements laid out
// as 4-byte integers in the stated byte order, then standard base64 with
// padding and no line breaks. The layout is written byte by byte, so it is the
// same on any host whatever its own byte order.

#include <cstdint>
#include <string>
#include <vector>

namespace fact {

enum class VectorEncoding : int32_t {
    kBase64 = 0,
};

// "base64" for kBase64, "unknown" for any other value.
std::string toString(VectorEncoding encoding);

// {1, -1} little-endian is the bytes 01 00 00 00 FF FF FF FF, "AQAAAP////8=";
// an empty vector gives "".
std::string encodeVector(const std::vector<int32_t>& data, bool bigEndian);

}  // namespace fact
