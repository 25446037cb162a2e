#pragma once
// Support for the telemetry producer's tests: its data files
// (tests/data/tdp), its heartbeat counts and a recorder for the analytics
// library's vector callback.

#include <mutex>
#include <string>
#include <vector>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"

namespace fact {
namespace tdp {
namespace test {

inline std::string readTestFile(const std::string& name) {
    return vemo::test::readHostFile(std::string(TDP_TEST_DATA_DIR) + "/" + name);
}

inline int32_t heartbeat(const char* name) {
    return FactHeartbeatMetric::GetInstance().getCount(name);
}

// What the analytics library hands to its vector callback.
struct VectorRecorder {
    struct Vector {
        std::vector<int> values;
        std::string applicationId;
        std::string metadata;
    };
    static void callback(const int* values, unsigned int length, const char* applicationId,
                         const char* metadata) {
        std::lock_guard<std::mutex> lock(mutex);
        vectors.push_back({std::vector<int>(values, values + length), applicationId, metadata});
    }
    static std::vector<Vector> received() {
        std::lock_guard<std::mutex> lock(mutex);
        return vectors;
    }
    static void clear() {
        std::lock_guard<std::mutex> lock(mutex);
        vectors.clear();
    }
    static inline std::mutex mutex;  // guards vectors
    static inline std::vector<Vector> vectors;
};

}  // namespace test
}  // namespace tdp
}  // namespace fact
