#pragma once
// One analytics vector: signed 32-bit elements plus a metadata text holding
// one JSON object whose members are strings (empty when none was set).
//
// A plain value, not synchronised: its owner serialises access.

#include <cstdint>
#include <string>
#include <vector>

namespace fact {

class Vector {
  public:
    // `size` zeros and the given metadata.
    Vector(int size, const std::string& metadata);

    // Element-wise sum (32-bit wrap-around). Differing sizes count
    // "VectorMismatchCount" and throw std::runtime_error("Vector size
    // mismatch"). Adopts the other's metadata when this one has none.
    Vector& operator+=(const Vector& other);
    // Appends the other's elements; metadata as for operator+=.
    void Concatenate(const Vector& other);
    // Appends the string member key: value to the metadata object (no check
    // for an existing member). Unparsable metadata counts
    // "VectorMetadataErrorCount" and throws std::runtime_error("Failed to
    // parse json: <metadata>").
    void AddMetadataField(const std::string& key, const std::string& value);
    // Estimated bytes held: 4 per element + 36 + metadata length.
    uint32_t memSize() const;

    std::vector<int32_t>& elements() { return mElements; }
    const std::vector<int32_t>& elements() const { return mElements; }
    const std::string& metadata() const { return mMetadata; }

  private:
    std::vector<int32_t> mElements;
    std::string mMetadata;
    // True when mMetadata was written by AddMetadataField (a compact object
    // with at least one member), so the next field can be appended without
    // parsing it again. False for metadata given from outside.
    bool mMetadataWellFormed = false;
};

}  // namespace fact
