#pragma once
// Records what the analytics library hands to its vector callback, and reads
// a recorded vector back as bin names using the campaign document's layout:
// one segment per "data" item of one attribute, element 0 of the segment for
// "no bin or first bin", element 1 + i for bin i.

#include <rapidjson/document.h>

#include <mutex>
#include <string>
#include <vector>

#include "TdpTestSupport.h"

namespace fact {
namespace tdp {
namespace test {

struct ReceivedVector {
    std::vector<int> values;
    std::string applicationId;
    std::string metadata;
};

class VectorRecorder {
  public:
    static void callback(const int* values, unsigned int length, const char* applicationId,
                         const char* metadata) {
        std::lock_guard<std::mutex> lock(state().mutex);
        state().received.push_back(
            ReceivedVector{std::vector<int>(values, values + length), applicationId, metadata});
    }
    static std::vector<ReceivedVector> received() {
        std::lock_guard<std::mutex> lock(state().mutex);
        return state().received;
    }
    static void clear() {
        std::lock_guard<std::mutex> lock(state().mutex);
        state().received.clear();
    }

  private:
    struct State {
        std::mutex mutex;  // guards received
        std::vector<ReceivedVector> received;
    };
    static State& state() {
        static State s;
        return s;
    }
};

class CampaignLayout {
  public:
    explicit CampaignLayout(const std::string& campaignFile) {
        rapidjson::Document doc;
        doc.Parse(readTestFile(campaignFile).c_str());
        for (const auto& item : doc["data"].GetArray()) {
            std::vector<std::string> bins;
            for (const auto& bin : item["attributes"][0]["bins"].GetArray()) {
                bins.push_back(bin.IsString() ? bin.GetString() : bin["name"].GetString());
            }
            segments_.push_back(bins);
        }
    }

    // The bin name hit in each segment, "(none)" for element 0, or a
    // description of what is wrong with the segment.
    std::vector<std::string> decode(const std::vector<int>& values) const {
        std::vector<std::string> names;
        size_t start = 0;
        for (const auto& bins : segments_) {
            const size_t size = bins.size() + 1;
            if (start + size > values.size()) {
                names.push_back("(short vector)");
                break;
            }
            std::string hit = "(no one-hot)";
            int ones = 0;
            for (size_t i = 0; i < size; ++i) {
                if (values[start + i] == 1) {
                    ++ones;
                    hit = i == 0 ? "(none)" : bins[i - 1];
                } else if (values[start + i] != 0) {
                    ones = 2;
                }
            }
            names.push_back(ones == 1 ? hit : "(no one-hot)");
            start += size;
        }
        if (start != values.size()) {
            names.push_back("(vector length " + std::to_string(values.size()) + ")");
        }
        return names;
    }

  private:
    std::vector<std::vector<std::string>> segments_;
};

}  // namespace test
}  // namespace tdp
}  // namespace fact
