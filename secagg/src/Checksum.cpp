#include "secagg/Checksum.h"

namespace secagg {

int32_t checksumOf(const int32_t* values, size_t count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum += static_cast<uint32_t>(values[i]);
    }
    return static_cast<int32_t>(sum);
}

void addInto(uint32_t* sum, const uint32_t* addend, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        sum[i] += addend[i];
    }
}

bool checksumHolds(const uint32_t* sum, size_t count) {
    if (count == 0) {
        return false;
    }
    uint32_t total = 0;
    for (size_t i = 0; i + 1 < count; ++i) {
        total += sum[i];
    }
    return ((total - sum[count - 1]) & 0x7fffffffu) == 0;
}

}  // namespace secagg
