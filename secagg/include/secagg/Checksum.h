#pragma once
// The checksum a device appends to its vector is the sum of the other
// elements. The cloud checks it on the session's sum: the sum of all elements
// but the last, minus the last, must be 0 modulo 2^31; the check holds through
// wrap-around because 2^31 divides 2^32. Stateless; any thread.

#include <cstddef>
#include <cstdint>

namespace secagg {

// The element a device appends to `count` elements.
int32_t checksumOf(const int32_t* values, size_t count);

// Adds `addend` into `sum` element-wise modulo 2^32.
void addInto(uint32_t* sum, const uint32_t* addend, size_t count);

// False for an empty vector.
bool checksumHolds(const uint32_t* sum, size_t count);

}  // namespace secagg
