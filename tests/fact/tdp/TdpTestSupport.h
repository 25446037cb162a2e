#pragma once
// Support for the telemetry producer's tests: its data files
// (tests/data/tdp), a recorder for the analytics library's vector callback,
// and a reader of recorded vectors that names the bin hit in each segment.

#include <rapidjson/document.h>

#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "TempDeviceRoot.h"

namespace fact {
namespace tdp {
namespace test {

inline std::string readTestFile(const std::string& name) {
    return vemo::test::readHostFile(std::string(TDP_TEST_DATA_DIR) + "/" + name);
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

// The bin hit in each segment of a vector laid out as campaign.json says: one
// segment per "data" item, element 0 "(none)", element 1 + i for bin i.
inline std::vector<std::string> decodeVector(const std::vector<int>& values) {
    rapidjson::Document doc;
    doc.Parse(readTestFile("campaign.json").c_str());
    std::vector<std::string> names;
    size_t at = 0;
    for (const auto& item : doc["data"].GetArray()) {
        std::vector<std::string> bins = {"(none)"};
        for (const auto& bin : item["attributes"][0]["bins"].GetArray()) {
            bins.push_back(bin.IsString() ? bin.GetString() : bin["name"].GetString());
        }
        std::string hit = "(no one-hot)";
        int ones = 0;
        for (size_t i = 0; i < bins.size(); ++i, ++at) {
            const int value = at < values.size() ? values[at] : -1;
            ones += value == 1 ? 1 : value == 0 ? 0 : 2;
            hit = ones == 1 && value == 1 ? bins[i] : hit;
        }
        names.push_back(ones == 1 ? hit : "(no one-hot)");
    }
    if (at != values.size()) {
        names.push_back("(vector length " + std::to_string(values.size()) + ")");
    }
    return names;
}

}  // namespace test
}  // namespace tdp
}  // namespace fact
